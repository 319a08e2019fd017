// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "server/client_kind.hpp"

using namespace hostadm::server;

namespace {

std::string kind(const char *items) {
    return name_of(kind_of(items));
}

TEST(ClientKind, IsWhatTheBootTypeSays) {
    EXPECT_EQ(kind("root=s:/r boottype=:di"), "diskless");
    EXPECT_EQ(kind("boottype=:da exec=s:/usr"), "dataless");
    EXPECT_EQ(kind("root=s:/r boottype=:ca"), "cache-only");
    EXPECT_EQ(kind("root=s:/r boottype=:in"), "install");
    EXPECT_EQ(kind("root=s:/r boottype=:rp"), "rpl");
    EXPECT_EQ(kind("root=s:/r boottype=in"), "install") << "without a colon";
    EXPECT_EQ(kind("root=s:/r boottype=s:in"), "install") << "with a server";
}

TEST(ClientKind, IsKnownByItsNameAndTheLibrarysKeyword) {
    EXPECT_EQ(kind("root=s:/r boottype=:CACHELET"), "cache-only");
    EXPECT_EQ(kind("root=s:/r boottype=:cachelet"), "cache-only");
    EXPECT_EQ(kind("root=s:/r boottype=:Install"), "install");
    EXPECT_EQ(kind("boottype=:diskfull"), "diskfull");
}

TEST(ClientKind, IsUnknownWithAWordOfNoKind) {
    EXPECT_EQ(kind("root=s:/r boottype=:OS_SERVER"), "unknown");
    EXPECT_EQ(kind("root=s:/r boottype=:d"), "unknown");
    EXPECT_EQ(kind("root=s:/r boottype=:UNKNOWN"), "unknown");
}

TEST(ClientKind, IsSeenFromTheOtherItemsWithoutABootType) {
    EXPECT_EQ(kind("root=s:/r swap=s:/s"), "diskless");
    EXPECT_EQ(kind("install=s:/i root=s:/r"), "install");
    EXPECT_EQ(kind("exec=s:/usr kvm=s:/kvm"), "dataless");
    EXPECT_EQ(kind("term=:vt100"), "unknown");
    EXPECT_EQ(kind(""), "unknown");
}

TEST(ClientKind, WritesWhatItReads) {
    for (const ClientKind one : {ClientKind::diskless, ClientKind::dataless, ClientKind::diskfull,
                                 ClientKind::cache_only, ClientKind::install, ClientKind::rpl})
        EXPECT_EQ(kind_of("boottype=:" + boot_type_item(one).path), one) << name_of(one);
}

TEST(ClientKind, TellsTheSwapAreaInWholeMegabytes) {
    EXPECT_EQ(swap_size_item(32U << 20U)->path, "32");
    EXPECT_EQ(swap_size_item((3U << 20U) - 1)->path, "2") << "never more than there is";
    EXPECT_FALSE(swap_size_item((1U << 20U) - 1));
}

} // namespace
