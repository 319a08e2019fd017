// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "hostadm.h"
#include "support/scratch.hpp"

namespace {

namespace fs = std::filesystem;

class Mklink : public testing::Test {
protected:
    tests::Scratch scratch;
};

TEST_F(Mklink, MakesTheLinkAndItsDirectory) {
    const std::string link = scratch.path("tftpboot/deep/0A000001");
    EXPECT_EQ(mklink("inetboot.kel4m", link.c_str()), 0);
    EXPECT_EQ(fs::read_symlink(link), "inetboot.kel4m");
    EXPECT_EQ(fs::status(scratch.path("tftpboot/deep")).permissions(),
              fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec | fs::perms::others_read |
                  fs::perms::others_exec | fs::perms::set_gid);
}

TEST_F(Mklink, ExistingLinkStaysAsItIs) {
    fs::create_symlink("old", scratch.path("link"));
    EXPECT_EQ(mklink("new", scratch.path("link").c_str()), 0);
    EXPECT_EQ(fs::read_symlink(scratch.path("link")), "old");
}

TEST_F(Mklink, ExistingFileStaysAsItIs) {
    const std::string file = scratch.write("file", "text");
    EXPECT_EQ(mklink("new", file.c_str()), 0);
    EXPECT_EQ(tests::content(file), "text");
}

TEST_F(Mklink, EqualStringsDoNothing) {
    const std::string path = scratch.path("missing/link");
    EXPECT_EQ(mklink(path.c_str(), path.c_str()), 0);
    EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST_F(Mklink, RelativeLinkPathWithoutDirectory) {
    const fs::path before = fs::current_path();
    fs::current_path(scratch.path());
    EXPECT_EQ(mklink("target", "link"), 0);
    fs::current_path(before);
    EXPECT_EQ(fs::read_symlink(scratch.path("link")), "target");
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), fs::directory_iterator()), 1);
}

TEST_F(Mklink, LinkInTheRootDirectoryNeedsNoParent) {
    EXPECT_EQ(mklink("somewhere", "/proc"), 0); // there already
}

TEST_F(Mklink, FileInTheWayOfTheDirectory) {
    scratch.write("file", "text");
    EXPECT_EQ(mklink("target", scratch.path("file/link").c_str()), -1);
}

TEST_F(Mklink, EmptyTargetIsRefused) {
    EXPECT_EQ(mklink("", scratch.path("link").c_str()), -1);
}

TEST_F(Mklink, PathLongerThanTheUsualBuffer) {
    std::string link = scratch.path();
    while (link.size() < 2500)
        link += "/" + std::string(99, 'd');
    const std::string target(2000, 't');
    EXPECT_EQ(mklink(target.c_str(), link.c_str()), 0);
    EXPECT_EQ(fs::read_symlink(link), target);
}

TEST_F(Mklink, TooLongPathIsRefused) {
    EXPECT_EQ(mklink("target", scratch.path(std::string(5000, 'l')).c_str()), -1);
}

} // namespace
