// SPDX-License-Identifier: MIT
#include "methods/client/add_diskless/paths.hpp"

#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace hostadm::diskless {

namespace fs = std::filesystem;

bool exists(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0;
}

bool is_directory(const std::string &path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

std::string parent_of(const std::string &path) {
    return fs::path(path).parent_path();
}

} // namespace hostadm::diskless
