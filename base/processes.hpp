// SPDX-License-Identifier: MIT
// The processes of this host.
#pragma once

#include <string>
#include <vector>

namespace hostadm::base {

struct Process {
    int pid = 0;
    std::string short_name;             // as the kernel knows it
    std::vector<std::string> arguments; // none: a thread of the kernel
};

// Those that are neither defunct nor end while this looks. proc is where the process table is.
std::vector<Process> live_processes(const std::string &proc = "/proc");

} // namespace hostadm::base
