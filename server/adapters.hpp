// SPDX-License-Identifier: MIT
// The commands that Debian lacks and the adapters bring.
#pragma once

#include <string>

namespace hostadm::server {

// The command by which an administrator puts the adapters of this installation in place.
std::string how_to_install_adapters();
// What to tell the user when the command is not there; empty when it is. `purpose` completes "which ...".
std::string missing_command(const std::string &path, const std::string &purpose);
// Throws Failure when it is not there.
void require_command(const std::string &path, const std::string &purpose);

} // namespace hostadm::server
