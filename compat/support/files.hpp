// SPDX-License-Identifier: MIT
// The server's own files and locks, with failures for the administrator.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/descriptor.hpp"

namespace compat {

// Nothing when there is no such file.
std::optional<std::string> read_file(const std::string &path);

// The new text appears whole or not at all; it is on the disk when this returns. Callers exclude each other.
void replace_file(const std::string &path, std::string_view text);

void make_directories(const std::string &path);

void write_all(const hostadm::base::Descriptor &file, std::string_view text, const std::string &path);

// Held until the object goes away. Lives in /run, because a lock beside the table would be litter there.
class FileLock {
public:
    // Waits at most `patience`, then throws.
    FileLock(const std::string &path, std::chrono::milliseconds patience);
    // Nothing when another process holds it.
    static std::optional<FileLock> try_take(const std::string &path);
    // Makes it the descriptor with this number, which the programs that this process turns into inherit.
    void hand_over(int number);

private:
    explicit FileLock(hostadm::base::Descriptor descriptor) : descriptor_(std::move(descriptor)) {}
    hostadm::base::Descriptor descriptor_;
};

} // namespace compat
