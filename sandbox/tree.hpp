// SPDX-License-Identifier: MIT
// Files inside a directory that is to be a root: no link of it leads out of it.
#pragma once

#include <string>

#include "base/descriptor.hpp"
#include "hostadm/sandbox.hpp"

namespace hostadm::sandbox {

using base::Descriptor;

// Opens a path inside the root; a link is followed as if the root were "/". Not open, with errno, on failure.
Descriptor open_inside(int root, const std::string &path, int flags);

// Opens a directory inside the root and makes what is missing on the way. Throws Error.
Descriptor make_directories(int root, const std::string &path);

// Copies what lies in a directory over the root; directories
// that are there keep their mode and owner. Throws Error.
void copy_over(int source, int root, const std::string &path = "/");

// Puts a copy of an open regular file in place of what stands at the path. Throws Error.
void replace_with_copy(int source, int root, const std::string &path);

// Puts a file there. Throws Error.
void place(const PlacedFile &file, int root);

// The entries of an open directory, sorted. Throws Error.
std::vector<std::string> entries_of(int directory);

[[noreturn]] void fail(const std::string &step);

} // namespace hostadm::sandbox
