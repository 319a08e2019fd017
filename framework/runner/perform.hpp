// SPDX-License-Identifier: MIT
// Running a method on this host. What else the runner offers stands in hostadm/runner.hpp.
#pragma once

#include "hostadm/runner.hpp"

namespace hostadm::framework {

// Runs the method that the request names in full.
Outcome perform_here(Request request);

} // namespace hostadm::framework
