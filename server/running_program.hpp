// SPDX-License-Identifier: MIT
// Whether a program runs, told apart from a command line that merely speaks of it.
#pragma once

#include <optional>
#include <string>

namespace hostadm::server {

// The id of a live process that was started as the program (the last part of its
// path is the name, also behind an interpreter) or that bears its name. check_daemon
// also counts a command line that only holds the name, such as that of an editor, or
// the one that asks for the daemon to be started; here that would be in the way.
std::optional<int> running_program(const std::string &name);

} // namespace hostadm::server
