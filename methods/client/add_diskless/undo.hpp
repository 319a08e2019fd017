// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "hostadm/method.hpp"

namespace hostadm::diskless {

// Takes back one entry of the journal. Returns what had to stay,
// in words, or nothing. What is gone already is no matter.
std::string undo(const method::Call &call, const std::vector<std::string> &entry);

} // namespace hostadm::diskless
