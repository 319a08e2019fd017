// SPDX-License-Identifier: MIT
// The daemons without which no client boots, under the names that they have here, and whether a program runs.
#pragma once

#include <optional>
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

// Reverse ARP, TFTP, RPC port mapper, boot parameters and NFS, in the order in which a client needs them;
// then DHCP, if PCs are served, and RPL, if a client boots by it.
// proc is where the process table is, inetd_table the table of daemons started on demand.
std::vector<BootDaemon> boot_daemons(const std::string &proc = "/proc",
                                     const std::string &inetd_table = "/etc/inetd.conf");

// Start the daemon where none serves and it is installed. What was started; empty: nothing was.
std::string ensure_reverse_arp();
std::string ensure_rpl();

// The id of a live process that was started as the program (the last part of its path is the name, also
// behind an interpreter) or that bears its name. check_daemon also counts a command line that only holds the
// name, such as that of an editor, or the one that asks for the daemon to be started; here that would be in
// the way.
std::optional<int> running_program(const std::string &name);

// The live process that does a daemon's work, whatever it is called: nfs-ganesha is mountd as well as nfsd, and the kernel's
// mount daemon is called rpc.mountd.
struct ServingProcess {
    std::string name;
    int pid = 0;
};
std::optional<ServingProcess> serving_process(const std::string &daemon);

} // namespace hostadm::server
