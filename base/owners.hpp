// SPDX-License-Identifier: MIT
// Owners of what the system hands out by pointer. Descriptors have a file of their own.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <memory>

namespace hostadm::base {

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// Where the close of a written stream matters: std::fclose(stream.release()).
struct CloseStream {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};
// Memory from malloc, such as texts that C functions make; release() hands it on to a caller.
template <typename Type> using Allocated = std::unique_ptr<Type, Free>;

} // namespace hostadm::base
