// SPDX-License-Identifier: MIT
// One thing that is wrong on this server, as its administrator needs to hear it.
#pragma once

#include <string>
#include <vector>

namespace hostadm::server {

enum class Severity {
    error,  // a boot fails
    warning // something is damaged, or fails later: after a reboot, at the next change
};

// The steps of a client's boot, in their order.
enum class Stage {
    address,      // reverse ARP: it asks for its IPv4 address
    boot_program, // TFTP
    name,         // WHOAMI by broadcast: its host name and router
    parameters,   // GETFILE: where its root, swap and dump are
    root,         // it mounts its root
    start,        // it starts its first process from there and mounts what its table names
    swap,         // swap and dump files
    reboot        // nothing now, but after this server has booted again
};

struct Finding {
    std::string check = {}; // the check that found it, as the list of checks names it
    Severity severity = Severity::error;
    Stage stage = Stage::address;
    std::string client = {}; // empty: every client
    std::string where = {};  // FILE:LINE, a path, a daemon, an interface
    std::string what = {};   // what is wrong there
    std::string why = {};    // what that does to which client at which stage
    std::string repair =
        {}; // the commands that mend it, as one line for a shell; with words to be filled in when
            // only the administrator can know them
};

using Findings = std::vector<Finding>;

const char *name_of(Severity severity);
const char *name_of(Stage stage);

} // namespace hostadm::server
