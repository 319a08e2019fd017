// SPDX-License-Identifier: MIT
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/folder_lock.hpp"
#include "base/private_folder.hpp"
#include "support/inside.hpp"

namespace {

using namespace hostadm::base;
using tests::inside;

mode_t mode_of(const char *path) {
    struct stat status {};
    return stat(path, &status) == 0 ? status.st_mode & 07777 : 0;
}

Descriptor folder(const char *path) {
    return Descriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool can_lock(const Descriptor &file) {
    return flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

} // namespace

TEST(PrivateFolders, AreMadeForTheirOwnerAlone) {
    inside([] {
        EXPECT_TRUE(private_folder("/var/a/b/c").is_open());
        EXPECT_EQ(mode_of("/var/a/b"), 0755u);
        EXPECT_EQ(mode_of("/var/a/b/c"), 0700u);
    });
}

TEST(PrivateFolders, AreClosedToOthersFirst) {
    inside([] {
        ASSERT_EQ(mkdir("/var/open", 0777), 0);
        ASSERT_EQ(chmod("/var/open", 0777), 0);
        EXPECT_TRUE(private_folder("/var/open").is_open());
        EXPECT_EQ(mode_of("/var/open"), 0700u);
    });
}

TEST(PrivateFolders, OfSomebodyElseAndLinksAreNotTaken) {
    inside([] {
        ASSERT_EQ(mkdir("/var/theirs", 0700), 0);
        ASSERT_EQ(chown("/var/theirs", 1, 1), 0);
        EXPECT_FALSE(private_folder("/var/theirs").is_open());
        EXPECT_EQ(errno, EPERM);
        ASSERT_EQ(symlink("/etc", "/var/link"), 0);
        EXPECT_FALSE(private_folder("/var/link").is_open());
        EXPECT_FALSE(private_folder("/etc/passwd/below").is_open());
    });
}

TEST(FolderLocks, OfOneFolderExcludeEachOtherWhateverItsName) {
    inside([] {
        ASSERT_EQ(mkdir("/var/work", 0755), 0);
        const Descriptor first = lock_file_of(folder("/var/work").get(), "test");
        ASSERT_TRUE(can_lock(first));
        ASSERT_EQ(rename("/var/work", "/var/renamed"), 0);
        EXPECT_FALSE(can_lock(lock_file_of(folder("/var/renamed").get(), "test")));
        EXPECT_TRUE(can_lock(lock_file_of(folder("/var").get(), "test"))) << "another folder";
        EXPECT_TRUE(can_lock(lock_file_of(folder("/var/renamed").get(), "other"))) << "another kind";
    });
}

TEST(FolderLocks, OfRootCannotBeHeldByWhoMayOpenTheFolder) {
    inside([] {
        ASSERT_EQ(mkdir("/var/work", 0755), 0);
        const Descriptor somebodys = folder("/var/work");
        ASSERT_TRUE(can_lock(somebodys));
        EXPECT_TRUE(can_lock(lock_file_of(somebodys.get(), "test")));
    });
}
