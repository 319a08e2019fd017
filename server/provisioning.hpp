// SPDX-License-Identifier: MIT
// What a new client gets on this server, step by step: root, swap, shares, boot program, tables, daemons.
#pragma once

#include <vector>

#include "hostadm/method.hpp"
#include "server/bootparams_text.hpp"
#include "server/journal.hpp"
#include "server/new_client.hpp"
#include "server/report.hpp"

namespace hostadm::server {

// Makes what is missing of it, noting each step before it is made. Throws Failure.
void provision(method::Call &call, const NewClient &client, Journal &journal, Report &report);

// Steps that other kinds of clients share.
//
// The boot program in /tftpboot, and the client's links to it.
void make_boot_area(method::Call &call, const NewClient &client, Journal &journal, Report &report);
// Items in bootparams, lines in the tables of hosts and of Ethernet addresses.
void enter_in_tables(method::Call &call, const NewClient &client, const std::vector<BootparamsItem> &items,
                     Journal &journal, Report &report);
// A server whose daemons do not run is set up all the same: what is missing is told, with the way to mend it.
void look_after_daemons(method::Call &call, const NewClient &client, Report &report);

} // namespace hostadm::server
