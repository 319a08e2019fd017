// SPDX-License-Identifier: MIT
// What is shared now: /etc/dfs/sharetab, a line "PATH RESOURCE TYPE OPTIONS DESCRIPTION" per share, separated
// by tabs; and the numbers under which the shares are exported: /etc/dfs/exportids, "NUMBER PATH" per line.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "base/share_rules.hpp"

namespace compat {

inline constexpr const char *share_lock_path = "/run/sharetab.lock";
inline constexpr std::chrono::seconds share_lock_patience{30};

struct ShareTable {
    static ShareTable load();
    void save() const;
    bool holds(const std::string &path) const;

    std::vector<hostadm::base::Share> shares;
};

// A client's file handles hold the number of the export, and a running server takes no known number for
// another path. So a number stays with its path, also while the path is not shared, until all are used up.
class ExportNumbers {
public:
    static ExportNumbers load();
    void save() const;

    unsigned number_of(const std::string &path, const ShareTable &in_use);
    bool changed() const { return changed_; }

private:
    struct Entry {
        unsigned number;
        std::string path;
    };
    std::vector<Entry> entries_; // oldest first
    bool changed_ = false;
};

} // namespace compat
