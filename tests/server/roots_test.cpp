// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "../support/scratch.hpp"
#include "server/roots.hpp"

namespace {

using namespace hostadm::server;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;
namespace fs = std::filesystem;

} // namespace

TEST(Roots, PathsAreSplitAtCommas) {
    EXPECT_THAT(split_paths("/a"), ElementsAre("/a"));
    EXPECT_THAT(split_paths("/a/,/b//,,/"), ElementsAre("/a", "/b", "/"));
    EXPECT_THAT(split_paths(""), IsEmpty());
}

TEST(Roots, ANameThatBeginsAnotherIsNotAboveIt) {
    EXPECT_TRUE(is_at_or_below("/export/root/c1", "/export/root/c1"));
    EXPECT_TRUE(is_at_or_below("/export/root/c1/x", "/export/root/c1"));
    EXPECT_TRUE(is_at_or_below("/export", "/"));
    EXPECT_FALSE(is_at_or_below("/export/root/c10", "/export/root/c1"));
    EXPECT_FALSE(is_at_or_below("/export/root", "/export/root/c1"));
}

TEST(Roots, APathHasOneSpellingUpToItsLastName) {
    const tests::Scratch scratch;
    scratch.write("real/c1/file", "x");
    fs::create_directory_symlink(scratch.path("real"), scratch.path("link"));
    fs::create_directory_symlink(scratch.path("real/c1"), scratch.path("real/c2"));
    const std::string real = fs::canonical(scratch.path("real"));
    for (const char *spelling : {"real/c1", "real//c1/", "real/./c1", "link/c1", "real/c1/../c1"})
        EXPECT_EQ(real_path_of(scratch.path(spelling)), real + "/c1") << spelling;
    EXPECT_EQ(real_path_of(scratch.path("link/none/deeper")), real + "/none/deeper");
    EXPECT_EQ(real_path_of(scratch.path("link/c2")), real + "/c2") << "the last name is taken as it is";
    RealPaths many;
    for (const char *spelling :
         {"link/c1", "link/none/deeper", "link/c1", "real/c1", "link/none/deeper/still"})
        EXPECT_EQ(many.of(scratch.path(spelling)), real_path_of(scratch.path(spelling))) << spelling;
    fs::create_directory_symlink("/", scratch.path("top"));
    EXPECT_EQ(real_path_of(scratch.path("top/c1")), "/c1");
    EXPECT_EQ(real_path_of("/"), "/");
    EXPECT_EQ(real_path_of("//c1/"), "/c1");
    EXPECT_EQ(real_path_of(""), "");
}

TEST(Roots, WhatLiesJustBelowTheServersRootIsNearIt) {
    for (const char *path : {"/", "//", "/.", "/c1", "/c1/", "//c1//"})
        EXPECT_TRUE(is_near_server_root(path)) << path;
    EXPECT_FALSE(is_near_server_root("/export/c1"));
}

TEST(Roots, AFolderOfTheClientsNameIsSharedForItsFile) {
    EXPECT_EQ(share_path_of("/export/swap/c1/swap", "c1"), "/export/swap/c1");
    EXPECT_EQ(share_path_of("/export/swap/c1", "c1"), "/export/swap/c1");
}

TEST(Roots, NothingNearTheRootOfTheServerIsRemoved) {
    for (const char *path : {"/", "/usr", "//"})
        EXPECT_THROW(remove_tree(path), std::runtime_error) << path;
}

TEST(Roots, ATreeThatIsReachedThroughALinkIsNotRemoved) {
    const tests::Scratch scratch;
    scratch.write("real/file", "x");
    fs::create_directory_symlink(scratch.path("real"), scratch.path("link"));
    EXPECT_THAT([&] { remove_tree(scratch.path("link")); },
                ThrowsMessage<std::runtime_error>(HasSubstr("symbolic link")));
    EXPECT_TRUE(fs::exists(scratch.path("real/file")));
}

TEST(Roots, ATreeIsRemovedWithoutFollowingItsLinks) {
    const tests::Scratch scratch;
    scratch.write("outside/file", "x");
    scratch.write("tree/deep/er/file", "x");
    fs::create_directory_symlink(scratch.path("outside"), scratch.path("tree/link"));
    remove_tree(scratch.path("tree"));
    EXPECT_FALSE(fs::exists(scratch.path("tree")));
    EXPECT_TRUE(fs::exists(scratch.path("outside/file")));
}
