// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/mount_tables.hpp"

using namespace hostadm::server;

TEST(MountTables, FindALineByItsResourceOrItsMountPoint) {
    const std::string table = "#device fsck point type pass boot options\n"
                              "h:/usr - /usr nfs - yes ro\n"
                              "#h:/old - /old nfs - yes ro\n"
                              "broken\n";
    EXPECT_TRUE(has_mount_line(table, "h:/usr", ""));
    EXPECT_TRUE(has_mount_line(table, "", "/usr"));
    EXPECT_TRUE(has_mount_line(table, "h:/usr", "/usr"));
    EXPECT_FALSE(has_mount_line(table, "h:/usr", "/mnt"));
    EXPECT_FALSE(has_mount_line(table, "h:/old", "")) << "a comment";
    EXPECT_FALSE(has_mount_line("", "h:/usr", ""));
}

TEST(MountTables, KnowWhereSomethingIsMounted) {
    EXPECT_TRUE(is_mount_point("/proc"));
    EXPECT_TRUE(is_mount_point("/proc/"));
    EXPECT_FALSE(is_mount_point("/proc/self"));
    EXPECT_FALSE(is_mount_point("/no/such/directory"));
}

TEST(MountTables, ListTheSystemsOwnMountsOnlyWhereTheyAreAskedFor) {
    const auto point_is = [](const std::string &point) {
        return testing::Field(&hostadm::base::Mount::point, point);
    };
    EXPECT_THAT(mounts_now(SystemMounts::listed), testing::Contains(point_is("/proc")));
    EXPECT_THAT(mounts_now(SystemMounts::left_out), testing::Not(testing::Contains(point_is("/proc"))));
    EXPECT_THAT(mounts_now(SystemMounts::left_out), testing::Not(testing::Contains(point_is("/"))));
}
