// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "base/bootparams.hpp"

using namespace hostadm::base;

TEST(BootparamsItems, HaveAKeyAServerAndAPath) {
    const auto item = split_item("root=server:/export/root/c1");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->key, "root");
    EXPECT_EQ(item->server, "server");
    EXPECT_EQ(item->path, "/export/root/c1");
    EXPECT_TRUE(item->has_server);
}

TEST(BootparamsItems, MayLackTheServer) {
    const auto item = split_item("boottype=:in");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->server, "");
    EXPECT_TRUE(item->has_server);
    EXPECT_FALSE(split_item("swapsize=32")->has_server);
    EXPECT_EQ(split_item("swapsize=32")->path, "32");
    EXPECT_EQ(split_item("root=")->path, "");
}

TEST(BootparamsItems, EndAtTheFirstColonOnly) {
    EXPECT_EQ(split_item("ns=server:nis(255.255.255.0):x")->path, "nis(255.255.255.0):x");
    EXPECT_EQ(split_item("a=b=c:d")->server, "b=c");
}

TEST(BootparamsItems, NeedAnEqualsSign) {
    EXPECT_FALSE(split_item("root"));
    EXPECT_FALSE(split_item(""));
}

TEST(BootparamsItems, AreFoundByTheirWholeKey) {
    constexpr const char *items = "swapsize=32 size=1 root=s:/a\troot=s:/b";
    EXPECT_EQ(find_item(items, "size")->path, "1");
    EXPECT_EQ(find_item(items, "root")->path, "/a");
    EXPECT_FALSE(find_item(items, "roo"));
    EXPECT_FALSE(find_item("", "root"));
}
