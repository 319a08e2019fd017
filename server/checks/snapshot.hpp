// SPDX-License-Identifier: MIT
// What this server looks like at one moment: read once, for all checks to look at.
#pragma once

#include <string>
#include <vector>

#include "server/clients.hpp"

namespace hostadm::server {

struct Snapshot {
    std::vector<Client> clients;
};

// Reads it all. What cannot be read is told by a check and not here.
Snapshot read_snapshot();

} // namespace hostadm::server
