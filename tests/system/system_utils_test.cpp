// SPDX-License-Identifier: MIT
// File trees and tables with the real libraries.
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>

#include "hostadm.h"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using tests::content;
using tests::write;

unsigned mode_of(const std::string &path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
}

// A file system of little room, mounted for one test.
class SmallFileSystem {
public:
    SmallFileSystem(const std::string &path, const std::string &options) : path_(path) {
        fs::create_directories(path);
        mounted_ = mount("small", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~SmallFileSystem() {
        if (mounted_)
            umount(path_.c_str());
    }
    SmallFileSystem(const SmallFileSystem &) = delete;
    SmallFileSystem &operator=(const SmallFileSystem &) = delete;
    bool mounted() const { return mounted_; }

private:
    std::string path_;
    bool mounted_;
};

TEST(SystemMkdirPath, MakesBootAreas) {
    std::string path = "/tftpboot/deep/er";
    EXPECT_EQ(mkdir_path(path.data()), 0);
    EXPECT_EQ(mode_of("/tftpboot"), 02755u);
    EXPECT_EQ(mode_of("/tftpboot/deep/er"), 02755u);
    EXPECT_EQ(mkdir_path(path.data()), -3);
}

TEST(SystemMkdirPath, FullFileSystemIsTold) {
    const SmallFileSystem small("/mnt/small", "nr_inodes=2");
    if (!small.mounted())
        GTEST_SKIP() << "no file system can be mounted here";
    std::string path = "/mnt/small/a/b/c";
    EXPECT_EQ(mkdir_path(path.data()), ENOENT); // a was made, b found no room, so c found no parent
    std::string parent = "/mnt/small/a/b";
    EXPECT_EQ(mkdir_path(parent.data()), ENOSPC);
}

TEST(SystemMkdirPath, ReadOnlyFileSystemIsTold) {
    const SmallFileSystem small("/mnt/readonly", "");
    if (!small.mounted() || mount(nullptr, "/mnt/readonly", nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        GTEST_SKIP() << "no file system can be mounted here";
    std::string path = "/mnt/readonly/a";
    EXPECT_EQ(mkdir_path(path.data()), EROFS);
    EXPECT_EQ(mklink("target", "/mnt/readonly/link"), -1);
}

TEST(SystemCopyfile, FullFileSystemShowsInTheStatus) {
    const SmallFileSystem small("/mnt/full", "size=4k");
    if (!small.mounted())
        GTEST_SKIP() << "no file system can be mounted here";
    write("/export/large", std::string(100'000, 'x'));
    EXPECT_NE(copyfile("/mnt/full/large", "/export/large"), 0);
}

TEST(SystemCopyfile, CopiesABootProgram) {
    write("/export/exec/inetboot", "the program");
    EXPECT_EQ(copyfile("/tftpboot/new/inetboot.kel4m", "/export/exec/inetboot"), 0);
    EXPECT_EQ(content("/tftpboot/new/inetboot.kel4m"), "the program");
    EXPECT_NE(copyfile("/tftpboot/new/other", "/export/exec/missing"), 0);
}

TEST(SystemCopytree, CopiesATreeUnderItsOwnName) {
    write("/cdrom/tree/sub/file", "the text");
    std::string destination = "/export/copies/tree";
    EXPECT_EQ(copytree(destination.data(), "/cdrom/tree"), 0);
    EXPECT_STREQ(destination.c_str(), "/export/copies/");
    EXPECT_EQ(content("/export/copies/tree/sub/file"), "the text");
}

TEST(SystemMklink, PointsToTheBootProgram) {
    EXPECT_EQ(mklink("inetboot.kel4m", "/tftpboot/0A000001"), 0);
    EXPECT_EQ(fs::read_symlink("/tftpboot/0A000001"), "inetboot.kel4m");
}

TEST(SystemMakedevs, RunsTheScriptOfARoot) {
    write("/export/root/c1/dev/MAKEDEV", "#!/bin/sh\nfor name; do : >\"made-$name\"; done\n");
    fs::permissions("/export/root/c1/dev/MAKEDEV", fs::perms::owner_all);
    const fs::path before = fs::current_path();
    hold_dev = {"/export/root/c1/dev", "sd0"};
    EXPECT_EQ(makedevs("/export/root/c1/dev", "st8"), 0);
    hold_dev = {nullptr, nullptr};
    EXPECT_EQ(fs::current_path(), before);
    EXPECT_TRUE(fs::exists("/export/root/c1/dev/made-st0"));
    EXPECT_TRUE(fs::exists("/export/root/c1/dev/made-sd0"));
}

TEST(SystemSetHosts, ReplacesAndAdds) {
    write("/etc/hosts", "# the hosts\n127.0.0.1\tlocalhost\n10.0.0.1\told-name\n");
    EXPECT_EQ(set_hosts("/etc/hosts", "10.0.0.1", "client1"), 0);
    EXPECT_EQ(set_hosts("/etc/hosts", "10.0.0.2", "client2"), 0);
    EXPECT_EQ(content("/etc/hosts"),
              "# the hosts\n127.0.0.1\tlocalhost\n10.0.0.1\tclient1\n10.0.0.2\tclient2\n");
}

TEST(SystemSetHosts, TableThatCannotBeReadIsTold) {
    fs::create_directories("/etc/folder");
    EXPECT_EQ(set_hosts("/etc/folder", "k", "v"), -EISDIR);
}

TEST(SystemMntadd, OneLinePerDevice) {
    write("/etc/vfstab", "# the table\n/dev/sda1\t-\t/\text4\t1\tno\t-\n#host:/x - /mnt nfs - yes rw\n");
    const std::string before = content("/etc/vfstab");
    char resource[] = "HOST:/x";
    EXPECT_EQ(mntadd("/etc/vfstab", resource, "", "/mnt", "nfs", "", "yes", "rw"), 0);
    EXPECT_STREQ(resource, "host:/x");
    EXPECT_EQ(content("/etc/vfstab"), before + "host:/x\t-\t/mnt\tnfs\t-\tyes\trw\n");
    EXPECT_EQ(mntadd("/etc/vfstab", resource, "", "/mnt", "nfs", "", "yes", "ro,soft"), 0);
    EXPECT_EQ(content("/etc/vfstab"), before + "host:/x\t-\t/mnt\tnfs\t-\tyes\tro,soft\n");
}

TEST(SystemMntadd, LineOfDashes) {
    write("/etc/vfstab.empty", "");
    EXPECT_EQ(mntadd("/etc/vfstab.empty", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(mntadd("/etc/vfstab.empty", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(content("/etc/vfstab.empty"), "-\t-\t-\t-\t-\t-\t-\n");
}

TEST(SystemMntadd4x, SixColumns) {
    char resource[] = "Server:/export/root/c1";
    fs::create_directories("/export/root/c1/etc");
    EXPECT_EQ(mntadd4x("/export/root/c1/etc/fstab", resource, "/", "nfs", "rw", "0", "0"), 0);
    EXPECT_EQ(content("/export/root/c1/etc/fstab"), "server:/export/root/c1\t/\tnfs\trw\t0\t0\n");
}

} // namespace
