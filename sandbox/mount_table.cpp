// SPDX-License-Identifier: MIT
#include "sandbox/mount_table.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <sys/mount.h>

namespace hostadm::sandbox {

namespace {

constexpr std::array<std::string_view, 23> kernel_types = {
    "autofs",   "binfmt_misc", "bpf",         "cgroup",     "cgroup2",   "configfs", "debugfs", "devpts",
    "efivarfs", "fuse.lxcfs",  "fuse.portal", "fusectl",    "hugetlbfs", "mqueue",   "nfsd",    "nsfs",
    "proc",     "pstore",      "rpc_pipefs",  "securityfs", "selinuxfs", "sysfs",    "tracefs"};

} // namespace

unsigned long flags_of(const base::Mount &mount) {
    unsigned long flags = 0;
    if (base::has_option(mount.options, "ro") || base::has_option(mount.system_options, "ro"))
        flags |= MS_RDONLY;
    if (base::has_option(mount.options, "nosuid"))
        flags |= MS_NOSUID;
    if (base::has_option(mount.options, "noexec"))
        flags |= MS_NOEXEC;
    return flags;
}

bool is_shown(const base::Mount &mount) {
    if (mount.point == "/" || mount.point == "/dev")
        return true;
    if (std::find(kernel_types.begin(), kernel_types.end(), mount.type) != kernel_types.end())
        return false;
    if (base::is_within(mount.point, "/dev"))
        return mount.point == "/dev/shm";
    return !base::is_within(mount.point, "/proc") && !base::is_within(mount.point, "/sys") &&
           !base::is_within(mount.point, "/run");
}

} // namespace hostadm::sandbox
