// SPDX-License-Identifier: MIT
// What taking back needs to know of the run that failed.
#pragma once

#include <string>
#include <vector>

#include "server/remembered.hpp"

namespace hostadm::server {

struct UndoContext {
    std::string method;                 // as the library's functions want it
    std::vector<Remembered> state = {}; // what stood at the paths that the run may touch
};

} // namespace hostadm::server
