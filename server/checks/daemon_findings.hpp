// SPDX-License-Identifier: MIT
// What can be wrong with any daemon: not installed, not running, defunct, stopped, in another network.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "server/checks/finding.hpp"
#include "server/checks/snapshot.hpp"

namespace hostadm::server {

struct Wanted {
    std::vector<const Daemon *> found; // by its names
    std::string name;                  // as it is called here
    std::vector<std::string> programs; // where it is when it is installed
    std::string package;               // empty: Debian has none
    Stage stage = Stage::address;
    std::string why;   // what clients miss without it
    std::string start; // the command that starts it
};

// The finding that keeps the daemon from serving anybody, if there is one.
bool is_installed(const Wanted &wanted);
std::optional<Finding> defect_of_daemon(const Wanted &wanted);

} // namespace hostadm::server
