// SPDX-License-Identifier: MIT
// File system types by name.
#include "platform/mounts.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <linux/magic.h>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>

#include "hostadm/platform.h"

namespace hostadm::platform {

namespace {

bool is_nfs(std::string_view type) {
    return type == "nfs" ||
           (type.size() == 4 && type.substr(0, 3) == "nfs" && type[3] >= '2' && type[3] <= '4');
}

// A throwaway root shows every file system as a layer over it, whose source tells what lies below.
std::string original_type(const std::string &type, const std::string &source) {
    constexpr std::string_view mark = "hostadm-sandbox:";
    const bool is_layer = type == "overlay" && source.compare(0, mark.size(), mark) == 0;
    const std::string original = is_layer ? source.substr(mark.size()) : type;
    return is_nfs(original) ? "nfs" : original;
}

} // namespace

std::optional<std::string> type_of_mount(std::istream &mountinfo, unsigned long long mount_id) {
    // ID PARENT MAJOR:MINOR ROOT MOUNT-POINT OPTIONS [OPTIONAL FIELD]... - TYPE SOURCE SUPER-OPTIONS
    for (std::string line; std::getline(mountinfo, line);) {
        std::istringstream words(line);
        unsigned long long id = 0;
        std::string word;
        if (!(words >> id) || id != mount_id)
            continue;
        while (words >> word && word != "-") {
        }
        std::string type, source;
        if (words >> type >> source)
            return original_type(type, source);
    }
    return std::nullopt;
}

} // namespace hostadm::platform

namespace {

std::optional<std::string> type_by_mount_table(const char *path) {
    struct statx status;
    if (statx(AT_FDCWD, path, AT_STATX_DONT_SYNC, STATX_MNT_ID, &status) != 0)
        return std::nullopt;
    std::optional<std::string> type;
    if ((status.stx_mask & STATX_MNT_ID) != 0) {
        std::ifstream mountinfo("/proc/self/mountinfo");
        type = hostadm::platform::type_of_mount(mountinfo, status.stx_mnt_id);
    }
    if (!type)
        errno = ENODATA;
    return type;
}

std::optional<std::string> type_of(const char *path) {
    struct statfs file_system;
    if (statfs(path, &file_system) != 0)
        return std::nullopt;
    // Every version of NFS has the one number; the mount table
    // tells them apart ("nfs4"), which is not wanted here.
    if (file_system.f_type == NFS_SUPER_MAGIC)
        return "nfs";
    return type_by_mount_table(path);
}

} // namespace

int sysv_fstype(const char *path, char *name, unsigned long size) try {
    if (path == nullptr || name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::optional<std::string> type = type_of(path);
    if (!type)
        return -1;
    if (type->size() >= size) {
        errno = ERANGE;
        return -1;
    }
    std::memcpy(name, type->c_str(), type->size() + 1);
    return 0;
} catch (const std::exception &) {
    errno = ENOMEM;
    return -1;
}
