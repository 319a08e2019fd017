// SPDX-License-Identifier: MIT
// What the private root's first process tells its maker: messages with descriptors.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/descriptor.hpp"

namespace hostadm::sandbox {

using base::Descriptor;

struct Message {
    enum class Kind : char { area, read_only, confined, setup_failed, unavailable, command_failed, ended };
    Kind kind = Kind::ended;
    int number = 0; // an errno, or the command's wait status
    std::string text;
    std::vector<Descriptor> descriptors;
};

// Both return false (nothing) when the other side has gone; receive also when there is nothing to read.
bool send(int socket, const Message &message);
std::optional<Message> receive(int socket);

} // namespace hostadm::sandbox
