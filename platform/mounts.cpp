// SPDX-License-Identifier: MIT
// File system types by name.
#include "base/mounts.hpp"

#include <cerrno>
#include <cstring>
#include <linux/magic.h>
#include <sys/vfs.h>

#include "base/boundary.hpp"
#include "hostadm/platform.h"

namespace {

using namespace hostadm;

// Every version of NFS is "nfs" here: the mount table tells them apart ("nfs4").
bool is_nfs(std::string_view type) {
    return type == "nfs" || (type.size() == 4 && type.starts_with("nfs") && type[3] >= '2' && type[3] <= '4');
}

std::optional<std::string> type_of(const char *path) {
    struct statfs file_system;
    if (statfs(path, &file_system) != 0)
        return std::nullopt;
    if (file_system.f_type == NFS_SUPER_MAGIC)
        return "nfs";
    const std::optional<base::Mount> mount = base::mount_of(path);
    if (!mount)
        return std::nullopt;
    const std::string type = base::shown_type(*mount);
    return is_nfs(type) ? "nfs" : type;
}

} // namespace

int sysv_fstype(const char *path, char *name, unsigned long size) {
    return base::errno_at_boundary(-1, [&] {
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
    });
}
