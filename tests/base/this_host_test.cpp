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

TEST(AddressOfHost, IsADottedOneOrNothing) {
    EXPECT_EQ(address_of_host("127.0.0.5"), "127.0.0.5");
    EXPECT_EQ(address_of_host("no..name"), "");
}
