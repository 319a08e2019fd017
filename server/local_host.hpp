// SPDX-License-Identifier: MIT
// This server, as its clients see it.
#pragma once

#include <string>

namespace hostadm::server {

std::string local_host_name();

// Whether a name, or an address, is this host's.
bool is_this_host(const std::string &name);

// Whether the address is one of this host's own.
bool is_own_address(const std::string &address);
// Whether an interface of this host is in the network of the address, so that its broadcasts arrive here.
bool is_in_own_network(const std::string &address);

// The IPv4 address that clients will be told for a host name,
// by /etc/hosts and the name services; empty: none.
std::string address_of_host(const std::string &name);

} // namespace hostadm::server
