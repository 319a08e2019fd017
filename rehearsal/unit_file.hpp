// SPDX-License-Identifier: MIT
// The command that a service unit of systemd starts, with its settings filled in.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace hostadm::rehearsal {

struct UnitCommand {
    std::vector<std::string> words;
    std::string file; // the unit's
};

// Of the unit NAME.service, with its drop-ins, looked for below root; nothing when there is no such unit, or
// when it is masked.
std::optional<UnitCommand> unit_command(const std::string &name, const std::string &root = "");

// NAME=VALUE lines of a file such as those in /etc/default, in their order.
std::vector<std::pair<std::string, std::string>> assignments_in(const std::string &text);

} // namespace hostadm::rehearsal
