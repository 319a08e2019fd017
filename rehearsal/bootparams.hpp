// SPDX-License-Identifier: MIT
// The two questions of a client to the boot-parameter service: who am I, and where is this or that of mine.
#pragma once

#include <string>
#include <vector>

#include "rehearsal/rpc.hpp"

namespace hostadm::rehearsal {

struct WhoAmI {
    std::string name, domain, router;
};
struct FileOfClient {
    std::string server, address, path;
};

// How a question goes: through the port mapper, which hands it on, to one server or broadcast from an interface;
// or straight to the service.
struct Way {
    std::string address;
    std::string interface = {}; // broadcast from it
    bool directly = false;
    std::chrono::milliseconds patience{300};
    int tries = 3;
};

template <typename Result> struct Answer {
    Reply reply; // well() without a result: it was not understood
    std::optional<Result> result = {};
};

Answer<WhoAmI> who_am_i(const Way &way, const std::string &client_address);
Answer<FileOfClient> get_file(const Way &way, const std::string &client, const std::string &key);

// The parts of such messages, for who reads them on the wire.
std::optional<WhoAmI> read_who_am_i(const std::vector<char> &results);
std::optional<FileOfClient> read_file_of_client(const std::vector<char> &results);

} // namespace hostadm::rehearsal
