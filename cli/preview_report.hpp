// SPDX-License-Identifier: MIT
// What a preview changed, in words and as diffs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "hostadm/sandbox.hpp"

namespace hostadm::cli {

// "file", "directory", "link", "device", ...
const char *type_word(const sandbox::FileState &state);
// In octal, without the type.
std::string mode_text(mode_t mode);

// The changes in the order and the detail in which they are shown.
class ChangesReport {
public:
    // `everything`: large added trees are not summed up, large files are compared line by line too.
    ChangesReport(const sandbox::Changes &changes, bool everything);

    struct Entry {
        const sandbox::Change *change = nullptr;
        std::string diff = {};               // unified, of a text file
        std::vector<std::string> lines = {}; // everything else about it; none in a tree that is summed up
    };
    const std::vector<Entry> &entries() const { return entries_; }

private:
    void add(const sandbox::Change &change);
    void close_tree();
    void describe(Entry &entry) const;
    bool diff_of(const sandbox::Change &change, std::string &diff) const;

    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    const sandbox::Changes &changes_;
    bool everything_;
    std::vector<Entry> entries_;
    std::size_t tree_ = none; // the added directory whose entries are being gathered
};

} // namespace hostadm::cli
