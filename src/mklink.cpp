// SPDX-License-Identifier: MIT
// Makes a symbolic link and the directory that it stands in.
#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>

#include "base/boundary.hpp"
#include "hostadm.h"

namespace {

std::string directory_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

} // namespace

int mklink(const char *target, const char *link_path) {
    return hostadm::base::at_boundary(-1, [&] {
        if (std::strcmp(target, link_path) == 0)
            return 0;
        std::string directory = directory_of(link_path);
        mkdir_path(directory.data());
        return symlink(target, link_path) == 0 || errno == EEXIST ? 0 : -1;
    });
}
