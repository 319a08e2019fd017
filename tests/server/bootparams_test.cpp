// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/bootparams.hpp"

using namespace hostadm::server;

TEST(ItemsOfAnEntry, AreFoundByTheirWholeKey) {
    const std::string items =
        "swapsize=:32 size=s:/1 root=server1:/export/root/c1 ns=server:nis(255.255.255.0)";
    EXPECT_EQ(item_of(items, "root"), "server1:/export/root/c1");
    EXPECT_EQ(path_of_item(items, "root"), "/export/root/c1");
    EXPECT_EQ(item_of(items, "size"), "s:/1");
    EXPECT_EQ(item_of(items, "swap"), "");
    EXPECT_EQ(path_of_item("boottype=in", "boottype"), "") << "a value without a server";
    EXPECT_EQ(item_of("", "root"), "");
}
