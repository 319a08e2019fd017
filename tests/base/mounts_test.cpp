// SPDX-License-Identifier: MIT
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <system_error>

#include "base/mounts.hpp"
#include "support/scratch.hpp"

using namespace hostadm::base;

TEST(Mounts, AreReadFromTheTableWithTheirBlanks) {
    tests::Scratch scratch;
    const auto mounts = all_mounts(scratch.write(
        "mountinfo", "22 1 0:21 / / rw,relatime shared:1 master:2 - ext4 /dev/vda rw,errors=remount-ro\n"
                     "30 22 8:1 /sub /home/a\\040b ro,nosuid,noexec - xfs /dev/sda1 rw\n"
                     "31 22 8:2 / /ro rw - nfs4 srv:/x ro\n"));
    ASSERT_EQ(mounts.size(), 3u);
    EXPECT_EQ(mounts[0].id, 22u);
    EXPECT_EQ(mounts[0].point, "/");
    EXPECT_EQ(mounts[0].type, "ext4");
    EXPECT_EQ(mounts[0].source, "/dev/vda");
    EXPECT_TRUE(has_option(mounts[0].system_options, "errors=remount-ro"));
    EXPECT_EQ(all_options(mounts[0]), "rw,relatime,errors=remount-ro");
    EXPECT_EQ(mounts[1].point, "/home/a b");
    EXPECT_EQ(mounts[1].root, "/sub");
    EXPECT_TRUE(has_option(mounts[1].options, "nosuid"));
    EXPECT_FALSE(has_option(mounts[1].options, "suid"));
    EXPECT_EQ(mounts[2].source, "srv:/x");
    EXPECT_TRUE(has_option(mounts[2].system_options, "ro"));
}

TEST(Mounts, OfATableThatIsMissingAreAnError) {
    EXPECT_THROW(all_mounts("/no/such/table"), std::system_error);
}

TEST(Mounts, OfThisHostBeginWithTheRoot) {
    const auto mounts = all_mounts();
    EXPECT_TRUE(
        std::any_of(mounts.begin(), mounts.end(), [](const Mount &mount) { return mount.point == "/"; }));
}

TEST(Mounts, AreFoundByAPathOnThem) {
    const auto proc = mount_of("/proc/self/stat");
    ASSERT_TRUE(proc);
    EXPECT_EQ(proc->type, "proc");
    errno = 0;
    EXPECT_EQ(mount_of("/no/such/path"), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Mounts, AtADirectoryAndBelowAreFound) {
    EXPECT_FALSE(mounts_within("/proc").empty());
    EXPECT_EQ(mounts_within("/").size(), all_mounts().size());
    EXPECT_TRUE(mounts_within("/pro").empty());
}

TEST(Mounts, OfALayerTellWhatIsBelow) {
    const Mount below{.source = "h:/a b", .type = "nfs"};
    const Mount layer{.source = layer_source(below), .type = "overlay"};
    EXPECT_EQ(shown_type(layer), "nfs");
    EXPECT_EQ(shown_source(layer), "h:/a b");
    const Mount layer_of_layer{.source = layer_source(layer), .type = "overlay"};
    EXPECT_EQ(shown_type(layer_of_layer), "nfs");
    EXPECT_EQ(shown_source(layer_of_layer), "h:/a b");
    EXPECT_EQ(shown_type({.source = "overlay", .type = "overlay"}), "overlay");
    EXPECT_EQ(shown_source({.source = "overlay", .type = "overlay"}), "overlay");
    EXPECT_EQ(shown_type({.source = layer_source(below), .type = "tmpfs"}), "tmpfs");
}

TEST(Within, GoesByWholeNames) {
    EXPECT_TRUE(is_within("/a", "/a"));
    EXPECT_TRUE(is_within("/a/b", "/a"));
    EXPECT_TRUE(is_within("/a", "/"));
    EXPECT_FALSE(is_within("/ab", "/a"));
    EXPECT_FALSE(is_within("/", "/a"));
}
