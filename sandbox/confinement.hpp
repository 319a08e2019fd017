// SPDX-License-Identifier: MIT
// Taking away what a command in a private root would need to leave it.
#pragma once

#include "base/descriptor.hpp"

namespace hostadm::sandbox {

using base::Descriptor;

// For the calling process and all that it starts, for ever: root's rights are those over its own name spaces
// and not over the system's, no program gives more of them, and the system calls that reach what is not in
// the private root are refused. Calls that make a device node wait until they are answered at what is
// returned. Throws Error.
Descriptor confine();

} // namespace hostadm::sandbox
