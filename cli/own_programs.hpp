// SPDX-License-Identifier: MIT
// Programs of this installation that only the command runs.
#pragma once

#include <string>

namespace hostadm::cli {

// They lie beside the methods, wherever the tree has been moved to.
std::string own_program(const std::string &name);

} // namespace hostadm::cli
