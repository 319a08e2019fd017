// SPDX-License-Identifier: MIT
#include "base/own_place.hpp"

#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include "base/owners.hpp"

namespace hostadm::base {

namespace {

std::string real_path(const char *path) {
    const Allocated<char> resolved(realpath(path, nullptr));
    return resolved ? resolved.get() : "";
}

std::string own_file() {
    Dl_info info{};
    link_map *object = nullptr;
    if (dladdr1(reinterpret_cast<const void *>(&own_folder), &info, reinterpret_cast<void **>(&object),
                RTLD_DL_LINKMAP) != 0 &&
        object != nullptr && object->l_name != nullptr && *object->l_name != '\0')
        return real_path(object->l_name);
    return real_path("/proc/self/exe");
}

} // namespace

std::string folder_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? "" : path.substr(0, slash);
}

bool is_folder(const std::string &path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISDIR(file.st_mode);
}

std::string own_folder() {
    return folder_of(own_file());
}

} // namespace hostadm::base
