// SPDX-License-Identifier: MIT
// The lock that editors of one folder's tables share.
#pragma once

#include <chrono>

#include "base/descriptor.hpp"

namespace hostadm::tables {

using Clock = std::chrono::steady_clock;

// Takes the lock of the folder's tables, waiting in line behind those who came earlier; it is held as long as the
// descriptor is open. Fails with -26 when the deadline passes.
base::Descriptor lock(int folder, Clock::time_point deadline);

} // namespace hostadm::tables
