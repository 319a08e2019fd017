// SPDX-License-Identifier: MIT
// A virtual cable between a copy of this server's network, in the network name space of this process, and a
// client's, in one of its own.
#pragma once

#include <string>

#include "base/descriptor.hpp"
#include "rehearsal/network.hpp"

namespace hostadm::rehearsal {

inline constexpr const char *client_interface = "cable0"; // the client's end

class Cable {
public:
    // Lays the cable to the interface of this name and sets up the others, unconnected. Throws
    // std::runtime_error. Only for a process in a private network name space.
    Cable(const Network &network, const std::string &interface, const std::string &client_ethernet);

    // From then on this thread, and what it starts, is at that end.
    void go_to_client() const;
    void go_to_server() const;

    // The client takes an address. To be called at its end.
    void take_address(const std::string &address, int prefix) const;

    // What of the server's network could not be copied.
    const std::string &not_copied() const { return not_copied_; }

private:
    base::Descriptor server_, client_;
    std::string not_copied_;
};

} // namespace hostadm::rehearsal
