// SPDX-License-Identifier: MIT
// This server's interfaces and the ways to its clients.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
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

// Where the main table of routes leads.
struct Route {
    std::string interface;
    std::uint32_t gateway = 0; // in host order; 0: straight to the host
};
class Routes {
public:
    void add(std::uint32_t destination, std::uint32_t mask, Route route);
    const Route *towards(std::uint32_t address) const; // the most specific; null: none

private:
    // By mask, the longest first.
    std::map<std::uint32_t, std::unordered_map<std::uint32_t, Route>, std::greater<>> by_mask_;
};
Routes read_routes(const std::string &proc = "/proc");

struct Network {
    std::vector<Interface> interfaces;
    std::vector<Neighbour> neighbours;
    Routes routes = {};
    std::map<std::string, std::string> throttled = {}; // interfaces that let little through, and what tc says

    // The interface that has an address in the network of this one; the loopback interface is never meant.
    const Interface *in_network_of(std::uint32_t address) const;
    bool is_own(std::uint32_t address) const;
};
// Of what `tc qdisc show` prints: what throws packets away, or lets none pass that is as large as a block of a boot
// program.
std::map<std::string, std::string> parse_throttled(std::string_view qdiscs);
Network read_network(const std::string &proc = "/proc");

// The address that packets to a host leave with; or an errno when there is no way to it.
struct Way {
    int error = 0;
    std::uint32_t source = 0;
};
Way way_to(std::uint32_t address);

} // namespace hostadm::server
