// SPDX-License-Identifier: MIT
// The network of this server as it is now, so that a copy of it can be set up elsewhere.
#pragma once

#include <string>
#include <vector>

namespace hostadm::rehearsal {

struct OwnAddress {
    std::string address, broadcast;
    int prefix = 0; // bits of the network
};

struct Interface {
    std::string name, ethernet;
    bool up = false;
    std::vector<OwnAddress> addresses;
};

struct Network {
    std::vector<Interface> interfaces; // without the loopback
    std::vector<std::string> routes; // as `ip route` writes them, without those that the kernel makes itself
    std::vector<std::string> neighbours; // permanent ones, as `ip neighbour` writes them
    std::vector<std::string> settings;   // NAME=VALUE below /proc/sys/net/ipv4/conf
    std::string filter;                  // rules for nft
    std::string old_filter;              // rules for iptables-restore
};

Network network_of_this_server();

bool is_in_network(const std::string &address, const OwnAddress &network);
// The interface in whose network an address is; null: none.
const Interface *interface_towards(const Network &network, const std::string &address);
// The address of this server that a client of this address sees, or the empty string.
std::string own_address_towards(const Network &network, const std::string &address);

bool is_own_address(const Network &network, const std::string &address);

} // namespace hostadm::rehearsal
