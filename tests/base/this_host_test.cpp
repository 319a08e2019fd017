// SPDX-License-Identifier: MIT
// The answers by name are tried in a private host by tests/tables/local_host_test.cpp; here, what the
// policies change.
#include <gtest/gtest.h>

#include "base/this_host.hpp"

using namespace hostadm::base;

TEST(ThisHost, CountsAnEmptyNameOnlyWhereThatIsWanted) {
    EXPECT_FALSE(is_this_host("", Lookup::name_services));
    EXPECT_TRUE(is_this_host("", Lookup::hosts_table, EmptyName::is_this_host));
}

TEST(ThisHost, IsItsNameWhateverTheLookUp) {
    for (const Lookup lookup : {Lookup::hosts_table, Lookup::name_services}) {
        EXPECT_TRUE(is_this_host(own_host_name(), lookup));
        EXPECT_TRUE(is_this_host("LOCALHOST", lookup));
        EXPECT_TRUE(is_this_host("127.3.2.1", lookup));
        EXPECT_FALSE(is_this_host("192.0.2.1", lookup)); // an address of documentation, nobody's
    }
}

TEST(OwnAddress, IsOfEitherFamilyAndNeverAName) {
    EXPECT_TRUE(is_own_address("127.0.0.1"));
    EXPECT_TRUE(is_own_address("::1"));
    EXPECT_FALSE(is_own_address("192.0.2.1"));
    EXPECT_FALSE(is_own_address("localhost"));
    EXPECT_FALSE(is_own_address(""));
}

TEST(OwnNetwork, HoldsTheAddressesBesideOurs) {
    EXPECT_TRUE(is_in_own_network("127.200.0.1"));
    EXPECT_FALSE(is_in_own_network("nonsense"));
}

TEST(OwnNetworks, AreThoseOfAllInterfacesButTheLoopback) {
    for (const OwnNetwork &network : own_networks()) {
        EXPECT_NE(network.interface, "lo");
        EXPECT_TRUE(network.holds(network.address));
        EXPECT_TRUE(network.holds(network.first()));
        EXPECT_TRUE(network.holds(network.last()));
        EXPECT_FALSE(network.holds(0x7f000001));
    }
    const OwnNetwork office{"eth0", 0xc0a80101, 0xffffff00}, line{"ppp0", 0x0a000105, 0xfffffffe};
    EXPECT_EQ(office.first(), 0xc0a80100);
    EXPECT_EQ(office.last(), 0xc0a801ff);
    EXPECT_FALSE(office.holds(0xc0a80201));
    EXPECT_TRUE(office.has_addresses_of_its_own());
    EXPECT_FALSE(line.has_addresses_of_its_own());
}

TEST(AddressOfHost, IsADottedOneOrNothing) {
    EXPECT_EQ(address_of_host("127.0.0.5"), "127.0.0.5");
    EXPECT_EQ(address_of_host("no..name"), "");
}
