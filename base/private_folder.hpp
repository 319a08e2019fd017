// SPDX-License-Identifier: MIT
// Folders that only their owner can reach: for locks, and for what one run tells another.
#pragma once

#include <string>

#include "base/descriptor.hpp"

namespace hostadm::base {

// Where root keeps what is gone with the next boot, such as locks.
inline constexpr const char *run_folder = "/run/hostadm";

// The folder, made with mode 0700 when it is missing, and with it those above it (0755). Not open, and errno
// says why: EPERM when it is somebody else's. One that lets others in is closed to them first.
Descriptor private_folder(const std::string &path);

} // namespace hostadm::base
