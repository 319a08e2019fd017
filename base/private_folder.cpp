// SPDX-License-Identifier: MIT
#include "base/private_folder.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hostadm::base {

namespace {

bool make_folder(const std::string &path, mode_t mode) {
    return mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
}

} // namespace

Descriptor private_folder(const std::string &path) {
    for (std::size_t slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1))
        if (!make_folder(path.substr(0, slash), 0755))
            return {};
    if (!make_folder(path, 0700))
        return {};
    Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat state {};
    if (!folder.is_open() || fstat(folder.get(), &state) != 0)
        return {};
    if (state.st_uid != geteuid()) {
        errno = EPERM;
        return {};
    }
    if ((state.st_mode & 07777) != 0700 && fchmod(folder.get(), 0700) != 0)
        return {};
    return folder;
}

} // namespace hostadm::base
