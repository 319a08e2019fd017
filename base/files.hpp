// SPDX-License-Identifier: MIT
// Whole files: reading one within bounds, and writing one so that it is there whole or not at all.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace hostadm::base {

inline constexpr std::size_t usual_size_limit = 64 << 20;

// The text of a file, or why there is none.
struct FileText {
    std::string text;
    int error = 0; // errno; EFBIG: more than the limit; EISDIR, ENOTSUP: no regular file

    explicit operator bool() const { return error == 0; }
    bool is_missing() const;
};

// Links are followed. Neither a fifo nor a device is opened, so that nobody can make this wait. Not for a
// directory that somebody else may change.
FileText read_file(const std::string &path, std::size_t limit = usual_size_limit);

// What can be read of the file, perhaps nothing: of one that is missing, that is none, or that goes away
// meanwhile, as those of a process do.
std::string file_contents(const std::string &path);

// Writes the text aside, flushes it and renames it over the path; then the directory is flushed. At every
// moment, also after a power cut, the file holds its old text or the new one. 0 or an errno value; then
// nothing is left behind.
int write_file(const std::string &path, std::string_view text, mode_t mode = 0644);

} // namespace hostadm::base
