// SPDX-License-Identifier: MIT
// The mounted file systems, and looking into a client's root, which its client may change at any moment.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "base/descriptor.hpp"

namespace hostadm::server {

struct Mount {
    std::string point, type, source;
    bool read_only = false;
};
std::vector<Mount> read_mounts();
// The mount that holds a path; the last one made there.
const Mount *mount_of(const std::vector<Mount> &mounts, const std::string &path);

struct Room {
    std::uint64_t free_bytes = 0;
    bool has_inodes = true; // or the file system does not count them
    bool known = false;
};
Room room_at(const std::string &path);

// Looks into a directory in which the links mean what they mean to somebody whose root it is: none leads out of
// it. Only plain files are read, and never more of one than is asked for.
class RootView {
public:
    explicit RootView(const std::string &directory);

    int error() const { return error_; } // errno of the directory itself
    const struct stat &own() const { return own_; }

    // Nothing and errno when it is not there.
    std::optional<struct stat> look(const std::string &path, bool follow = true) const;
    std::optional<std::string> read(const std::string &path, std::size_t limit) const;
    std::vector<std::string> names_in(const std::string &path, std::size_t limit) const;
    // What a link in it holds; empty: it is none.
    std::string target_of(const std::string &path) const;

private:
    base::Descriptor open(const std::string &path, int flags) const;

    base::Descriptor directory_;
    int error_ = 0;
    struct stat own_ {};
};

} // namespace hostadm::server
