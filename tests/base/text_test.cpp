// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/bootparams.hpp"
#include "base/text.hpp"

using namespace hostadm::base;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Words, ArePartedByBlanksAndTheCarriageReturn) {
    EXPECT_THAT(words_of("  a\tb  c\r"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(words_of(" \t"), IsEmpty());
}

TEST(Parts, MayBeEmpty) {
    EXPECT_THAT(split("a,,b,", ','), ElementsAre("a", "", "b", ""));
    EXPECT_THAT(split("", ','), ElementsAre(""));
}

TEST(LastComponent, StandsBehindTheLastSlash) {
    EXPECT_EQ(last_component("/usr/sbin/in.rarpd"), "in.rarpd");
    EXPECT_EQ(last_component("nfsd"), "nfsd");
    EXPECT_EQ(last_component("/a/"), "");
}

TEST(LastLine, IsTheLastThatIsNotBlank) {
    EXPECT_EQ(last_line("one\n two \n\n"), "two");
    EXPECT_EQ(last_line("one"), "one");
    EXPECT_EQ(last_line("\n \n"), "");
    EXPECT_EQ(last_line(""), "");
}

TEST(BootparamsItem, HasAServerWhenItHasAColon) {
    const auto item = split_item("root=server:/export/root/a:b");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->key, "root");
    EXPECT_TRUE(item->has_server);
    EXPECT_EQ(item->server, "server");
    EXPECT_EQ(item->path, "/export/root/a:b");
    EXPECT_EQ(split_item("rootopts=:rsize=8192")->path, "rsize=8192");
    EXPECT_TRUE(split_item("rootopts=:rsize=8192")->has_server);
    EXPECT_EQ(split_item("boottype=diskless")->path, "diskless");
    EXPECT_FALSE(split_item("boottype=diskless")->has_server);
    EXPECT_FALSE(split_item("word"));
}

TEST(BootparamsItem, IsFoundByItsWholeKey) {
    const char *items = "swapsize=16 size=1\tsize=2";
    EXPECT_EQ(find_item(items, "size")->path, "1");
    EXPECT_FALSE(find_item(items, "swap"));
    EXPECT_FALSE(find_item("", "root"));
}
