// SPDX-License-Identifier: MIT
// The client that is asked for, with all that was left to defaults.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hostadm/method.hpp"
#include "server/hierarchy.hpp"

namespace hostadm::diskless {

struct Client {
    std::string hostname, address, ethernet, server;
    server::Identity identity;
    std::string root, swap, dump, boot_name;
    std::uint64_t swap_size = 0;
    std::string tree;                  // to copy
    std::vector<std::string> packages; // to install
    std::string hierarchy;             // holds the boot program

    // The directories that it mounts: its root, and those of its swap and dump files.
    std::vector<std::string> shared_directories() const;
    std::string share_options() const { return "rw=" + hostname + ",root=" + hostname; }
};

// Throws std::runtime_error when the request makes no sense.
Client read_client(method::Call &call);

} // namespace hostadm::diskless
