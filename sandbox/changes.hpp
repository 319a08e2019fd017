// SPDX-License-Identifier: MIT
// The layers behind a list of changes.
#pragma once

#include <string>
#include <vector>

#include "hostadm/sandbox.hpp"
#include "sandbox/private_root.hpp"

namespace hostadm::sandbox {

struct Changes::Areas {
    std::vector<Layers> list;
};

} // namespace hostadm::sandbox
