// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/clients.hpp"

using namespace hostadm::server;

TEST(Clients, KnowTheItemsOfTheirEntry) {
    const Client client{.name = "c1",
                        .items = "root=server1:/export/root/c1 swap=s2:/s swapsize=:32 boottype=:in"};
    EXPECT_EQ(client.item("root"), "server1:/export/root/c1");
    EXPECT_EQ(client.root(), "/export/root/c1");
    EXPECT_EQ(client.swap(), "/s") << "a longer key is another";
    EXPECT_EQ(client.dump(), "");
    EXPECT_EQ(client.own_path("dump"), "");
}

TEST(Clients, HaveTheirPathsHereOnlyIfTheServerIsThisHost) {
    const Client client{.name = "c1",
                        .items = "root=localhost:/export//root/./c1 swap=no.such.host.invalid:/s"};
    EXPECT_EQ(client.own_path("root"), "/export/root/c1");
    EXPECT_EQ(client.own_path("swap"), "");
}

TEST(Clients, AskForTheirBootProgramByTheirAddress) {
    Client client{.name = "c1", .address = "10.1.2.3"};
    EXPECT_EQ(client.digits(), "0A010203");
    EXPECT_EQ(client.boot_links(), "no");
    client.links = {{"0A010203", "inetboot.kel4m.Quorvel_2.5", true},
                    {"0A010203.KEL4M", "inetboot.kel4m.Quorvel_2.5", true}};
    EXPECT_EQ(client.boot_links(), "yes");
    EXPECT_EQ(client.architecture(), "kel4m");
    EXPECT_EQ(Client{.name = "c2"}.boot_links(), "no address");
}

TEST(Clients, AreNotCalledLikeTheServer) {
    EXPECT_TRUE(is_server_itself("LocalHost"));
    EXPECT_FALSE(is_server_itself("no-such-host"));
}
