// SPDX-License-Identifier: MIT
// What this server looks like at one moment: read once, for all checks to look at.
#pragma once

#include <string>
#include <vector>

namespace hostadm::server {

// A client by its entry in bootparams, with what the other tables say of it.
struct Client {
    std::string name;     // as bootparams writes it
    std::string address;  // of its first line in the hosts table; empty: none
    std::string ethernet; // of its first line in the ethers table; empty: none
    std::string digits;   // of the address, as the client asks TFTP for them
    std::string root;     // path on this server
};

struct Snapshot {
    std::vector<Client> clients;
};

// Reads it all. What cannot be read is told by a check and not here.
Snapshot read_snapshot();

} // namespace hostadm::server
