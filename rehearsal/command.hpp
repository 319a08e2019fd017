// SPDX-License-Identifier: MIT
// Programs of the system and what they print.
#pragma once

#include <string>
#include <vector>

#include "base/program.hpp"

namespace hostadm::rehearsal {

// Runs a program found in PATH with this input, for at most a few seconds.
base::Answer ask(const std::vector<std::string> &words, const std::string &input = {});
bool is_installed(const std::string &program);

} // namespace hostadm::rehearsal
