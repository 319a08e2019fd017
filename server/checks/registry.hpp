// SPDX-License-Identifier: MIT
// The list of all checks, and running them.
#pragma once

#include <string>
#include <vector>

#include "server/checks/finding.hpp"
#include "server/checks/snapshot.hpp"

namespace hostadm::server {

// One subject: looks at the server as a whole, at each client, or at both, in what was read of it before.
// Nothing is changed. The findings need not say which check they are of.
struct Check {
    std::string name;
    std::string looks_at;
    Findings (*of_server)(const Snapshot &) = nullptr;
    Findings (*of_client)(const Snapshot &, const CheckedClient &) = nullptr;
};

const std::vector<Check> &all_checks();

// What is wrong with the server and with the clients of these names, all when none is given; in the order of the
// stages of a boot, errors first.
Findings check(const Snapshot &server, const std::vector<std::string> &clients = {});

// What could not be looked at, and why; empty: everything was.
std::string not_seen(const Snapshot &server);

// Names of clients that a mistyped name may have meant, the nearest first; at most three.
std::vector<std::string> nearest_clients(const Snapshot &server, const std::string &name);

} // namespace hostadm::server
