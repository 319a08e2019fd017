// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "base/share_options.hpp"

namespace {

using namespace hostadm::base;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

void refused(const std::string &text, const std::string &why) {
    EXPECT_THAT([&] { parse_share_options(text); }, ThrowsMessage<ShareRefused>(HasSubstr(why))) << text;
}

} // namespace

TEST(ShareOptionsText, EveryoneWritesUnlessSomebodyIsNamed) {
    EXPECT_EQ(parse_share_options("rw").everyone, Access::write);
    EXPECT_EQ(parse_share_options("ro").everyone, Access::read);
    EXPECT_EQ(parse_share_options("root=c1").everyone, Access::write);
    EXPECT_EQ(parse_share_options("rw=c1").everyone, Access::none);
    EXPECT_EQ(parse_share_options("ro,rw=c1").everyone, Access::read);
    EXPECT_EQ(parse_share_options("sec=sys,anon=0").anonymous, 0u);
}

TEST(ShareOptionsText, NamesClientsNetworksAndDomains) {
    const ShareOptions options = parse_share_options("rw=c1:.example.com,ro=@192.168.1.0/24,root=c1");
    EXPECT_THAT(options.writers, ElementsAre("c1", ".example.com"));
    EXPECT_THAT(options.readers, ElementsAre("@192.168.1.0/24"));
    EXPECT_THAT(client_rules(options), testing::Contains(ClientRule{"c1", Access::write, true}));
}

TEST(ShareOptionsText, WhatIsNotUnderstoodIsNamed) {
    refused("", "unknown option \"\"");
    refused("rw,nosub", "unknown option \"nosub\"");
    refused("rw,ro", "exclude each other");
    refused("rw=", "is no client");
    refused("rw=c1:c 2", "\"c 2\" is no client");
    refused("rw=@net", "is no client");
    refused("anon=me", "is no user number");
    refused("anon=-1", "is no user number");
    refused("anon=99999999999", "is no user number");
}
