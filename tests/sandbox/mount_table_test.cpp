// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/mount.h>

#include "sandbox/mount_table.hpp"

using hostadm::sandbox::is_shown;
using hostadm::sandbox::is_within;
using hostadm::sandbox::Mount;
using hostadm::sandbox::read_mounts;

namespace {

Mount mount_at(const std::string &point, const std::string &type) {
    return {.id = 1, .point = point, .type = type, .flags = 0};
}

} // namespace

TEST(MountTable, ReadsPointTypeAndFlags) {
    std::istringstream table(
        "22 1 0:21 / / rw,relatime shared:1 master:2 - ext4 /dev/vda rw,errors=remount-ro\n"
        "30 22 8:1 / /home/a\\040b ro,nosuid,noexec - xfs /dev/sda1 rw\n"
        "31 22 8:2 / /ro rw - ext4 /dev/sda2 ro\n");
    const std::vector<Mount> mounts = read_mounts(table);
    ASSERT_EQ(mounts.size(), 3u);
    EXPECT_EQ(mounts[0].id, 22u);
    EXPECT_EQ(mounts[0].point, "/");
    EXPECT_EQ(mounts[0].type, "ext4");
    EXPECT_EQ(mounts[0].flags, 0u);
    EXPECT_EQ(mounts[1].point, "/home/a b");
    EXPECT_EQ(mounts[1].flags, static_cast<unsigned long>(MS_RDONLY | MS_NOSUID | MS_NOEXEC));
    EXPECT_EQ(mounts[2].flags, static_cast<unsigned long>(MS_RDONLY));
}

TEST(MountTable, SkipsLinesThatItDoesNotUnderstand) {
    std::istringstream table("rubbish\n\n22 1 0:21 / / rw\n");
    EXPECT_TRUE(read_mounts(table).empty());
}

TEST(MountTable, KeepsABackslashThatEscapesNothing) {
    std::istringstream table("1 0 0:1 / /a\\ rw - ext4 x rw\n2 0 0:1 / /b\\012 rw - ext4 x rw\n");
    const std::vector<Mount> mounts = read_mounts(table);
    ASSERT_EQ(mounts.size(), 2u);
    EXPECT_EQ(mounts[0].point, "/a\\");
    EXPECT_EQ(mounts[1].point, "/b\n");
}

TEST(MountTable, TellsWhatLiesWithinADirectory) {
    EXPECT_TRUE(is_within("/a", "/a"));
    EXPECT_TRUE(is_within("/a/b", "/a"));
    EXPECT_TRUE(is_within("/a", "/"));
    EXPECT_FALSE(is_within("/ab", "/a"));
    EXPECT_FALSE(is_within("/", "/a"));
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
