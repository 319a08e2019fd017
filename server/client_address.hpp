// SPDX-License-Identifier: MIT
// The addresses that a client may be given: a host's, nobody else's, and one from which this server hears it.
#pragma once

#include <string>
#include <vector>

#include "base/this_host.hpp"

namespace hostadm::server {

// Throws Failure when an IPv4 address can be no client's: a reserved one, one of this server, or that of a whole network
// of this server.
void check_client_address(const std::string &address);
void check_client_address(const std::string &address, const std::vector<base::OwnNetwork> &networks);
// Throws Failure when it is the address of a whole network of this server, or of all hosts in it.
void check_is_a_hosts(const std::string &address, const std::vector<base::OwnNetwork> &networks);
// Throws Failure unless a network of this server holds the address. A server that has none yet is no hindrance.
void check_in_own_network(const std::string &address, const std::vector<base::OwnNetwork> &networks);

// Throws Failure when it can be no client's.
void check_client_ethernet(const std::string &ethernet);

} // namespace hostadm::server
