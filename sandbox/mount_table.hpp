// SPDX-License-Identifier: MIT
// How the file systems of the running system are shown in a private root.
#pragma once

#include "base/mounts.hpp"

namespace hostadm::sandbox {

// What of a mount's options its copy keeps: MS_RDONLY, MS_NOSUID, MS_NOEXEC.
unsigned long flags_of(const base::Mount &mount);

// Does this mount hold files that the private root shows? The places that it makes anew (/proc, /sys, /run,
// most of /dev) and the kernel's own file systems are not among them.
bool is_shown(const base::Mount &mount);

} // namespace hostadm::sandbox
