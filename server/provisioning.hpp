// SPDX-License-Identifier: MIT
// What a new client gets on this server, step by step: root, swap, shares, boot program, tables, daemons.
#pragma once

#include "hostadm/method.hpp"
#include "server/journal.hpp"
#include "server/new_client.hpp"
#include "server/report.hpp"

namespace hostadm::server {

// Makes what is missing of it, noting each step before it is made. Throws Failure.
void provision(method::Call &call, const NewClient &client, Journal &journal, Report &report);

} // namespace hostadm::server
