// SPDX-License-Identifier: MIT
// This host: its name, its addresses, and whether a name or an address means it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::base {

std::string own_host_name();

// Where the addresses of a name are looked up.
enum class Lookup {
    hosts_table,   // /etc/hosts alone: asks nobody, waits for nobody
    name_services, // as the system resolves names
};
enum class EmptyName { is_nobody, is_this_host };

// This host are: "localhost"; its host name, in full and up to the first dot; every loopback address and
// every address of its network interfaces; every name that the look-up gives to one of these addresses.
// Without regard to case, and to a dot at the end.
bool is_this_host(std::string_view host, Lookup lookup, EmptyName empty = EmptyName::is_nobody);

// Whether the address, of either family, is a loopback address or one of an interface.
bool is_own_address(std::string_view address);
// Whether an interface of this host is in the network of the IPv4 address, so that its broadcasts arrive
// here.
bool is_in_own_network(std::string_view address);

// A network that an interface of this host is in, in host order.
struct OwnNetwork {
    std::string interface;
    std::uint32_t address = 0, mask = 0; // the address is this host's
    std::uint32_t first() const { return address & mask; }
    std::uint32_t last() const { return address | ~mask; }
    bool holds(std::uint32_t other) const { return (other & mask) == first(); }
    // Between two hosts, both addresses are hosts'.
    bool has_addresses_of_its_own() const { return ~mask > 1; }
};
// Without those of the loopback interface; empty also when the kernel does not tell.
std::vector<OwnNetwork> own_networks();

// The IPv4 address that clients will be told for a host name, by the hosts table and the name services;
// empty: none.
std::string address_of_host(const std::string &name);

} // namespace hostadm::base
