// SPDX-License-Identifier: MIT
// The daemons without which no client boots, under the names that they have here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hostadm::server {

struct BootDaemon {
    std::string service; // what it does for a client
    std::string name;    // the program that serves, or the one to start
    bool running = false;
    int pid = 0;             // 0 when it does not run, or runs in the kernel or on demand
    std::string note = {};   // what is wrong although it runs, or how it runs
    std::string advice = {}; // what to do when it does not run, or when something is wrong
};

// Reverse ARP, TFTP, RPC port mapper, boot parameters and NFS, in the order in which a client needs them.
// proc is where the process table is, inetd_table the table of daemons started on demand.
std::vector<BootDaemon> boot_daemons(const std::string &proc = "/proc",
                                     const std::string &inetd_table = "/etc/inetd.conf");

} // namespace hostadm::server
