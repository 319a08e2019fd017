// SPDX-License-Identifier: MIT
// This server's interfaces and the ways to its clients.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace hostadm::server {

struct Subnet {
    std::uint32_t address = 0, mask = 0; // in host order
    bool holds(std::uint32_t other) const { return (address & mask) == (other & mask); }
    std::uint32_t first() const { return address & mask; }
    std::uint32_t last() const { return address | ~mask; }
};

struct Interface {
    std::string name;
    unsigned index = 0, flags = 0; // the flags as if_nametoindex(3) and netdevice(7) have them
    std::string ethernet;          // six bytes, or none
    std::vector<Subnet> addresses;
};

// An address that the kernel knows, or was told, the Ethernet address of.
struct Neighbour {
    std::string address, ethernet, interface;
    bool permanent = false;
};

struct Network {
    std::vector<Interface> interfaces;
    std::vector<Neighbour> neighbours;

    // The interface that has an address in the network of this one; the loopback interface is never meant.
    const Interface *in_network_of(std::uint32_t address) const;
    bool is_own(std::uint32_t address) const;
};
Network read_network(const std::string &proc = "/proc");

// The address that packets to a host leave with; or an errno when there is no way to it.
struct Way {
    int error = 0;
    std::uint32_t source = 0;
};
Way way_to(std::uint32_t address);

} // namespace hostadm::server
