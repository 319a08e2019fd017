// SPDX-License-Identifier: MIT
#include "base/folder_lock.hpp"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/private_folder.hpp"

namespace hostadm::base {

namespace {

Descriptor private_lock_of(int folder, const char *kind) {
    struct stat place {};
    if (fstat(folder, &place) != 0 || !private_folder(run_folder).is_open())
        return {};
    const Descriptor locks = private_folder(std::string(run_folder) + "/" + kind);
    if (!locks.is_open())
        return {};
    std::array<char, 40> name{};
    std::snprintf(name.data(), name.size(), "%jx-%jx", static_cast<std::uintmax_t>(place.st_dev),
                  static_cast<std::uintmax_t>(place.st_ino));
    // For reading, so that it can be locked where it is there and /run is read-only.
    constexpr int flags = O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    return Descriptor(openat(locks.get(), name.data(), flags, 0600));
}

} // namespace

Descriptor lock_file_of(int folder, const char *kind) {
    if (geteuid() == 0)
        if (Descriptor file = private_lock_of(folder, kind); file.is_open())
            return file;
    // Opened anew: a lock belongs to the open folder, and this one is to be held apart from the caller's.
    for (;;) {
        const int again = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (again >= 0 || errno != EINTR)
            return Descriptor(again);
    }
}

} // namespace hostadm::base
