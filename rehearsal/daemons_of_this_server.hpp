// SPDX-License-Identifier: MIT
// How this server starts each of the daemons that a client boots from.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/processes.hpp"
#include "server/client_kind.hpp"

namespace hostadm::rehearsal {

enum class Service { port_mapper, reverse_arp, dhcp, tftp, boot_parameters, nfs };

struct DaemonStart {
    Service service;
    std::string name;               // in.tftpd
    std::string package;            // Debian's
    std::string program;            // the file to run; empty: there is no way to start it
    std::vector<std::string> words; // its command line
    std::string origin;          // where that is written: a process, a unit, a start script, /etc/inetd.conf
    int pid = 0;                 // of the daemon that runs now; 0: none, or one of the kernel's own
    bool runs = false;           // it runs now, be it on demand or in the kernel
    bool in_kernel = false;      // it cannot be started a second time
    std::string inetd_line = {}; // the line that starts it on demand

    std::string command() const; // the words, for a reader
};

enum class Settings {
    of_processes, // as the daemons run now; one that does not run, as it is started at boot
    of_boot       // as they are started at boot
};

// All, or those that a client of a kind asks while it boots.
std::vector<DaemonStart> daemons_of_this_server(Settings settings,
                                                std::optional<server::ClientKind> kind = std::nullopt);

// The processes of this server and not those of a container or a throwaway root on it.
std::vector<base::Process> processes_of_this_server();

} // namespace hostadm::rehearsal
