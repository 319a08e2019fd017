// SPDX-License-Identifier: MIT
// What a client mounts of this server: its root, its swap file, its dump file.
#pragma once

#include <string>
#include <vector>

#include "server/checks/finding.hpp"
#include "server/checks/snapshot.hpp"

namespace hostadm::server {

struct Need {
    std::string key;  // "root", "swap", "dump"
    std::string path; // on this server, without slashes too many
    Stage stage = Stage::root;
    bool exists = false;
    bool is_file = false;
};

// Those that lie on this server.
std::vector<Need> needs_of(const Snapshot &server, const CheckedClient &client);

} // namespace hostadm::server
