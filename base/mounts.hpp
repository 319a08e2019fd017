// SPDX-License-Identifier: MIT
// What is mounted, read by libmount. That is loaded at the first question: with the libraries that it needs
// itself it would make the start of every program twice as long.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::base {

struct Mount {
    std::uint64_t id = 0; // as statx gives it; 0 when the table has none
    std::string source = {};
    std::string point = {};
    std::string root = {}; // the directory of the file system that is seen at the point
    std::string type = {};
    std::string options = {};        // of this mount: rw, nosuid ...
    std::string system_options = {}; // of the file system
};

inline constexpr const char *own_mount_table = "/proc/self/mountinfo";

// These throw std::system_error when the table cannot be read.

// Every mount that this process sees, parents before children.
std::vector<Mount> all_mounts(const std::string &table = own_mount_table);
// The mount that a path lies on, by its number; nothing (and errno) when there is no such path.
std::optional<Mount> mount_of(const std::string &path);
// Those at a directory or below it.
std::vector<Mount> mounts_within(const std::string &directory);

// A copy that is laid over a file system (an overlay) can say in its source what it shows: with the layer_source() of
// the mount below it, its shown_type() and shown_source() are those of that; of any other mount they are its own.
std::string layer_source(const Mount &below);
std::string shown_type(const Mount &mount);
std::string shown_source(const Mount &mount);

// Is a path the directory itself or below it? By the words alone: both are absolute and without "..".
bool is_within(std::string_view path, std::string_view directory);

bool has_option(std::string_view options, std::string_view wanted);
// Those of the mount and those of its file system, each once, as the mount command lists them.
std::string all_options(const Mount &mount);

} // namespace hostadm::base
