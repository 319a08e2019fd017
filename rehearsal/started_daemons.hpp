// SPDX-License-Identifier: MIT
// The daemons of this server, started once more in a throwaway root.
#pragma once

#include <string>
#include <vector>

#include "rehearsal/daemons_of_this_server.hpp"

namespace hostadm::rehearsal {

// One that was started, and what became of it.
struct Started {
    DaemonStart start;
    std::string failure; // why it cannot serve, in words; empty: it serves
    std::string said;    // by the daemon, last line
};

// Starts them one after another and waits until they can be asked, or have had the time for it. server is an
// address of the server to ask at beside the loopback. For a process in a throwaway root and network.
std::vector<Started> start_daemons(const std::vector<DaemonStart> &starts, const std::string &server);

} // namespace hostadm::rehearsal
