// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/stat.h>

#include "../support/scratch.hpp"
#include "server/remembered.hpp"

namespace {

namespace fs = std::filesystem;
using hostadm::base::Beneath;
using hostadm::server::Remembered;
using testing::HasSubstr;
using tests::content;

ino_t inode_of(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

TEST(Remembered, WhatWasNotThereGoes) {
    const tests::Scratch scratch;
    const Beneath root(scratch.path());
    const Remembered file(root, "file"), folder(root, "folder"), link(root, "link"), below(root, "none/file");
    for (const Remembered *each : {&file, &folder, &link, &below})
        EXPECT_EQ(each->put_back(), "") << "nothing came";
    scratch.write("file", "new\n");
    fs::create_directory(scratch.path("folder"));
    fs::create_symlink("file", scratch.path("link"));
    for (const Remembered *each : {&file, &folder, &link, &below})
        EXPECT_EQ(each->put_back(), "");
    EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(Remembered, FolderInWhichSomebodyKeepsSomethingStays) {
    const tests::Scratch scratch;
    const Beneath root(scratch.path());
    const Remembered folder(root, "folder");
    scratch.write("folder/other", "theirs\n");
    EXPECT_EQ(folder.put_back(), "");
    EXPECT_EQ(content(scratch.path("folder/other")), "theirs\n");
}

TEST(Remembered, FileGetsItsTextAndModeBack) {
    const tests::Scratch scratch;
    const std::string path = scratch.write("file", "old\n");
    chmod(path.c_str(), 0640);
    const Beneath root(scratch.path());
    const Remembered file(root, "file");
    const ino_t before = inode_of(path);
    EXPECT_EQ(file.put_back(), "");
    EXPECT_EQ(inode_of(path), before) << "unchanged is not written";
    scratch.write("file", "");
    chmod(path.c_str(), 0600);
    EXPECT_EQ(file.put_back(), "");
    EXPECT_EQ(content(path), "old\n");
    fs::remove(path);
    EXPECT_EQ(file.put_back(), "");
    EXPECT_EQ(content(path), "old\n");
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST(Remembered, LinkLeadsWhereItLed) {
    const tests::Scratch scratch;
    fs::create_symlink("old", scratch.path("link"));
    const Beneath root(scratch.path());
    const Remembered link(root, "link");
    EXPECT_EQ(link.put_back(), "");
    for (const bool as_file : {false, true}) {
        fs::remove(scratch.path("link"));
        if (as_file)
            scratch.write("link", "x");
        else
            fs::create_symlink("new", scratch.path("link"));
        EXPECT_EQ(link.put_back(), "");
        EXPECT_EQ(fs::read_symlink(scratch.path("link")), "old");
    }
}

TEST(Remembered, WhatCannotBePutBackIsTold) {
    const tests::Scratch scratch;
    const std::string path = scratch.write("folder/file", "old\n");
    const Beneath root(scratch.path());
    const Remembered file(root, "folder/file");
    fs::remove_all(scratch.path("folder"));
    scratch.write("folder", "in the way\n");
    EXPECT_THAT(file.put_back(), HasSubstr(path + " (cannot "));
}

TEST(Remembered, NothingIsPutBackThroughALink) {
    const tests::Scratch scratch;
    const std::string outside = scratch.write("outside/table", "the server's\n");
    scratch.write("root/etc/table", "old\n");
    const Beneath root(scratch.path("root"));
    const Remembered file(root, "etc/table"), folder(root, "etc/new");
    fs::remove(scratch.path("root/etc/table"));
    fs::create_symlink(outside, scratch.path("root/etc/table"));
    EXPECT_EQ(file.put_back(), "");
    EXPECT_EQ(content(scratch.path("root/etc/table")), "old\n");
    EXPECT_FALSE(fs::is_symlink(scratch.path("root/etc/table")));
    fs::remove_all(scratch.path("root/etc"));
    fs::create_directory_symlink(scratch.path("outside"), scratch.path("root/etc"));
    scratch.write("outside/new", "");
    EXPECT_NE(file.put_back(), "");
    EXPECT_NE(folder.put_back(), "");
    EXPECT_EQ(content(outside), "the server's\n");
    EXPECT_TRUE(fs::exists(scratch.path("outside/new")));
}
