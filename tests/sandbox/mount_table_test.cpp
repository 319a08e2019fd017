// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include "sandbox/mount_table.hpp"

using hostadm::base::Mount;
using hostadm::sandbox::flags_of;
using hostadm::sandbox::is_shown;

namespace {

Mount mount_at(const std::string &point, const std::string &type) {
    return {.id = 1, .point = point, .type = type};
}

} // namespace

TEST(MountTable, CopiesKeepWhatTheOriginalForbids) {
    EXPECT_EQ(flags_of({.options = "rw,relatime", .system_options = "rw,errors=remount-ro"}), 0u);
    EXPECT_EQ(flags_of({.options = "ro,nosuid,noexec", .system_options = "rw"}),
              static_cast<unsigned long>(MS_RDONLY | MS_NOSUID | MS_NOEXEC));
    EXPECT_EQ(flags_of({.options = "rw", .system_options = "ro"}), static_cast<unsigned long>(MS_RDONLY));
}

TEST(MountTable, ShowsFileSystemsAndNotTheKernelsOwn) {
    EXPECT_TRUE(is_shown(mount_at("/", "ext4")));
    EXPECT_TRUE(is_shown(mount_at("/var", "xfs")));
    EXPECT_TRUE(is_shown(mount_at("/tmp", "tmpfs")));
    EXPECT_TRUE(is_shown(mount_at("/export/home", "nfs4")));
    EXPECT_TRUE(is_shown(mount_at("/dev", "devtmpfs")));
    EXPECT_TRUE(is_shown(mount_at("/dev/shm", "tmpfs")));
    EXPECT_FALSE(is_shown(mount_at("/dev/pts", "devpts")));
    EXPECT_FALSE(is_shown(mount_at("/dev/null", "devtmpfs")));
    EXPECT_FALSE(is_shown(mount_at("/proc", "proc")));
    EXPECT_FALSE(is_shown(mount_at("/proc/sys/fs/binfmt_misc", "binfmt_misc")));
    EXPECT_FALSE(is_shown(mount_at("/sys/fs/cgroup", "tmpfs")));
    EXPECT_FALSE(is_shown(mount_at("/run/user/0", "tmpfs")));
    EXPECT_FALSE(is_shown(mount_at("/var/lib/nfs/rpc_pipefs", "rpc_pipefs")));
    EXPECT_TRUE(is_shown(mount_at("/runner", "ext4")));
}
