// SPDX-License-Identifier: MIT
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "hostadm.h"
#include "support/scratch.hpp"

namespace {

namespace fs = std::filesystem;

unsigned mode_of(const std::string &path) {
    struct stat found {};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 07777;
}

class MkdirPath : public testing::Test {
protected:
    // The result for a path; the string must come back unchanged.
    static int make(const std::string &path) {
        std::string writable = path;
        const int result = mkdir_path(writable.data());
        EXPECT_EQ(writable, path);
        return result;
    }
    tests::Scratch scratch;
};

TEST_F(MkdirPath, CreatesOneDirectory) {
    EXPECT_EQ(make(scratch.path("a")), 0);
    EXPECT_EQ(mode_of(scratch.path("a")), 02755u);
}

TEST_F(MkdirPath, CreatesThreeLevels) {
    EXPECT_EQ(make(scratch.path("a/b/c")), 0);
    for (const char *made : {"a", "a/b", "a/b/c"})
        EXPECT_EQ(mode_of(scratch.path(made)), 02755u) << made;
}

TEST_F(MkdirPath, ModeIgnoresTheFileCreationMask) {
    const mode_t old = umask(0777);
    const int result = make(scratch.path("a/b"));
    umask(old);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(mode_of(scratch.path("a")), 02755u);
    EXPECT_EQ(mode_of(scratch.path("a/b")), 02755u);
}

TEST_F(MkdirPath, ExistingDirectoryStaysAsItIs) {
    fs::create_directory(scratch.path("a"));
    fs::permissions(scratch.path("a"), fs::perms::owner_all);
    EXPECT_EQ(make(scratch.path("a")), -3);
    EXPECT_EQ(mode_of(scratch.path("a")), 0700u);
    EXPECT_EQ(make("/"), -3);
}

TEST_F(MkdirPath, ExistingFileInTheWayOfTheLastName) {
    scratch.write("file", "text");
    EXPECT_EQ(make(scratch.path("file")), -3);
    EXPECT_EQ(tests::content(scratch.path("file")), "text");
}

TEST_F(MkdirPath, FileInTheWayOfAParent) {
    scratch.write("file", "text");
    EXPECT_EQ(make(scratch.path("file/a")), ENOTDIR);
    EXPECT_EQ(make(scratch.path("file/a/b")), ENOTDIR);
}

TEST_F(MkdirPath, EmptyString) {
    EXPECT_EQ(make(""), -1);
}

TEST_F(MkdirPath, RelativePathWithoutSlash) {
    const fs::path before = fs::current_path();
    fs::current_path(scratch.path());
    EXPECT_EQ(make("plain"), 0);
    EXPECT_EQ(make("one/two"), 0);
    fs::current_path(before);
    EXPECT_EQ(mode_of(scratch.path("plain")), 02755u);
    EXPECT_EQ(mode_of(scratch.path("one/two")), 02755u);
}

TEST_F(MkdirPath, RelativePathWhoseParentIsGone) {
    const fs::path before = fs::current_path();
    fs::create_directory(scratch.path("gone"));
    fs::current_path(scratch.path("gone"));
    fs::remove(scratch.path("gone"));
    EXPECT_EQ(make("plain"), -1);
    EXPECT_EQ(make("one/two"), ENOENT);
    fs::current_path(before);
}

TEST_F(MkdirPath, TrailingSlashAfterAMissingParent) {
    // The parent of "a/b/" is "a/b" itself, so the second attempt finds it made.
    EXPECT_EQ(make(scratch.path("a/b/")), EEXIST);
    EXPECT_EQ(mode_of(scratch.path("a/b")), 02755u);
}

TEST_F(MkdirPath, DoubledSlashes) {
    EXPECT_EQ(make(scratch.path() + "//a//b"), 0);
    EXPECT_TRUE(fs::is_directory(scratch.path("a/b")));
}

TEST_F(MkdirPath, LinkToNowhereCountsAsThere) {
    fs::create_symlink("nowhere", scratch.path("link"));
    EXPECT_EQ(make(scratch.path("link")), -3);
}

TEST_F(MkdirPath, SecondCallFindsItThere) {
    EXPECT_EQ(make(scratch.path("a/b")), 0);
    EXPECT_EQ(make(scratch.path("a/b")), -3);
}

TEST_F(MkdirPath, PathOfThousandsOfCharacters) {
    std::string path = scratch.path();
    while (path.size() < 3900)
        path += "/" + std::string(99, 'd');
    EXPECT_EQ(make(path), 0);
    EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(MkdirPath, TooLongPathIsRefused) {
    EXPECT_EQ(make(scratch.path(std::string(5000, 'd'))), ENAMETOOLONG);
    EXPECT_TRUE(fs::is_empty(scratch.path()));
}

} // namespace
