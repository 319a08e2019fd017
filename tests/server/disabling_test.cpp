// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/inside.hpp"
#include "../support/text_files.hpp"
#include "server/disabling.hpp"
#include "server/line_edits.hpp"

namespace {

using namespace hostadm::server;
using tests::inside;

} // namespace

TEST(Disabling, AClientIsFoundBehindItsMarkWhateverItsSpelling) {
    inside([] {
        const std::string mark(disabled_mark);
        tests::write("/etc/ethers",
                     "8:0:20:0:0:9 c9\n" + mark + "8:0:20:0:0:1 C1\n" + mark + "8:0:20:0:0:2 c2 # x\n");
        EXPECT_EQ(disabled_ethernet_of("c1"), "8:0:20:0:0:1");
        EXPECT_EQ(disabled_ethernet_of("C2"), "8:0:20:0:0:2");
        EXPECT_EQ(disabled_ethernet_of("c9"), "") << "it is not disabled";
        EXPECT_EQ(disabled_ethernet_of("c"), "");
        EXPECT_THAT(disabled_ethernets(), testing::UnorderedElementsAre(testing::Pair("c1", "8:0:20:0:0:1"),
                                                                        testing::Pair("c2", "8:0:20:0:0:2")));
    });
}

TEST(Disabling, WithoutATableNobodyIsDisabled) {
    inside([] {
        std::filesystem::remove("/etc/ethers");
        EXPECT_THAT(disabled_ethernets(), testing::IsEmpty());
        EXPECT_EQ(disabled_ethernet_of("c1"), "");
    });
}

TEST(Disabling, WhatIsKeptOfAClientCanBeForgotten) {
    inside([] {
        tests::write("/etc/ethers", std::string(disabled_mark) + "8:0:20:0:0:1 c1\n8:0:20:0:0:2 c2\n");
        EXPECT_TRUE(forget_disabled("c1"));
        EXPECT_EQ(tests::content("/etc/ethers"), "8:0:20:0:0:2 c2\n");
        EXPECT_FALSE(forget_disabled("c1"));
    });
}
