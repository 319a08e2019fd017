// SPDX-License-Identifier: MIT
// The clients that boot from this server, put together from bootparams, hosts, ethers, /tftpboot and the
// shares.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "server/boot_links.hpp"

namespace hostadm::server {

// What the server shares now: options by path. Nothing when there is no share command here.
std::unordered_map<std::string, std::string> current_shares();

// A line of the table of shares that are made at boot.
struct TableShare {
    std::string path, options;
    bool failed = false; // a "#share" line
};
std::vector<TableShare> table_shares(const std::string &table = "/etc/dfs/dfstab");

struct ClientSummary {
    std::string name, address, ethernet, architecture, boot_program, root;
    std::string boot_links; // "yes", "no" or what is wrong
    bool shared = false;
};

// All clients whose root is on this server, in the order of bootparams. Throws std::runtime_error where the
// name-service switch names a source that nobody can read, or a table cannot be read.
std::vector<ClientSummary> all_clients();

} // namespace hostadm::server
