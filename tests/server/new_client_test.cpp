// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/new_client.hpp"

namespace {

using namespace hostadm::server;
using testing::ElementsAre;

NewClient some_client() {
    NewClient client;
    client.name = "c1";
    client.address = "10.1.2.3";
    client.ethernet = "8:0:20:a:b:c";
    client.server = "server1";
    client.root = "/export/root/c1";
    client.swap = "/export/swap/c1/swap";
    return client;
}

} // namespace

TEST(NewClients, HaveTheFoldersSharedThatBearTheirName) {
    NewClient client = some_client();
    EXPECT_THAT(client.shared_directories(), ElementsAre("/export/root/c1", "/export/swap/c1"));
    client.swap = "/export/root/c1/swap";
    EXPECT_THAT(client.shared_directories(), ElementsAre("/export/root/c1")) << "it comes with the root";
    client.swap = "/export/swap/all/swap.c1";
    EXPECT_THAT(client.shared_directories(), ElementsAre("/export/root/c1", "/export/swap/all/swap.c1"));
}

TEST(NewClients, GetAnItemForEachOfTheirPaths) {
    NewClient client = some_client();
    const auto keys = [&] {
        std::vector<std::string> all;
        for (const BootparamsItem &item : client.items())
            all.push_back(item.key + "=" + item.server);
        return all;
    };
    EXPECT_THAT(keys(), testing::Not(testing::Contains("dump=server1")));
    client.dump = "/export/dump/c1/dump";
    EXPECT_THAT(keys(), testing::IsSupersetOf({"root=server1", "swap=server1", "dump=server1", "boottype="}));
}

TEST(NewClients, ClaimEverythingThatAnotherRunCouldWantToo) {
    NewClient client = some_client();
    client.dump = "/export/dump/c1/dump";
    std::vector<std::string> values;
    for (const Claim &claim : client.claims())
        values.push_back(claim.value);
    EXPECT_THAT(values, ElementsAre("c1", "10.1.2.3", "8:0:20:a:b:c", "/export/root/c1",
                                    "/export/swap/c1/swap", "/export/dump/c1/dump"));
}

TEST(NewClients, BootFromTheNamedProgramOrTheFirstPlaceThatMayHoldIt) {
    NewClient client = some_client();
    EXPECT_EQ(client.boot_program_source().hierarchy, "/export/root/c1");
    client.source.tree = "/tree";
    EXPECT_EQ(client.boot_program_source().hierarchy, "/tree");
    client.hierarchy = "/cdrom";
    EXPECT_EQ(client.boot_program_source().hierarchy, "/cdrom");
    client.boot_program = "/boot";
    EXPECT_EQ(client.boot_program_source().file, "/boot");
}
