// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "server/client_address.hpp"
#include "server/failure.hpp"

namespace {

using namespace hostadm::server;
using hostadm::base::OwnNetwork;
using testing::AllOf;
using testing::HasSubstr;

const std::vector<OwnNetwork> networks{
    {"eth0", 0xc0a80101, 0xffffff00},  // 192.168.1.1/24
    {"eth1", 0x0a000105, 0xfffffffe}}; // 10.0.1.5/31, a line to one other host

template <typename Check> std::string failure_of(Check check) {
    try {
        check();
        return "";
    } catch (const Failure &failure) {
        return failure.what();
    }
}

std::string defect(const std::string &address) {
    return failure_of([&] { check_client_address(address, networks); });
}

std::string distance(const std::string &address, const std::vector<OwnNetwork> &own) {
    return failure_of([&] { check_in_own_network(address, own); });
}

} // namespace

TEST(ClientAddress, IsAHosts) {
    for (const char *good : {"192.168.1.2", "192.168.1.254", "192.168.2.0", "10.0.1.4", "223.255.255.254"})
        EXPECT_EQ(defect(good), "");
    EXPECT_THAT(defect("0.0.0.0"), HasSubstr("is no address of a host"));
    EXPECT_THAT(defect("127.0.0.5"), HasSubstr("loopback"));
    EXPECT_THAT(defect("224.0.0.1"), HasSubstr("multicast"));
    EXPECT_THAT(defect("239.255.255.255"), HasSubstr("multicast"));
    EXPECT_THAT(defect("255.255.255.255"), HasSubstr("everybody's"));
}

TEST(ClientAddress, IsNotThatOfAWholeNetwork) {
    EXPECT_THAT(defect("192.168.1.0"), AllOf(HasSubstr("the address of the network 192.168.1.0/24 of eth0"),
                                             HasSubstr("from 192.168.1.1 to 192.168.1.254")));
    EXPECT_THAT(defect("192.168.1.255"), HasSubstr("the broadcast address of the network 192.168.1.0/24"));
}

TEST(ClientAddress, LiesInANetworkOfTheServer) {
    EXPECT_EQ(distance("192.168.1.200", networks), "");
    EXPECT_EQ(distance("10.0.1.4", networks), "");
    EXPECT_THAT(distance("192.168.2.7", networks),
                AllOf(HasSubstr("in no network of this server (192.168.1.0/24 of eth0, 10.0.1.4/31 of eth1)"),
                      HasSubstr("server=")));
    EXPECT_EQ(distance("192.168.2.7", {}), "") << "it has none yet";
}

TEST(ClientEthernet, IsOfOneHost) {
    EXPECT_NO_THROW(check_client_ethernet("8:0:20:a:b:c"));
    for (const char *bad : {"ff:ff:ff:ff:ff:ff", "1:0:5e:0:0:1", "0:0:0:0:0:0"})
        EXPECT_THROW(check_client_ethernet(bad), Refusal) << bad;
}
