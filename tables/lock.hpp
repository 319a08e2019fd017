// SPDX-License-Identifier: MIT
// The lock that editors of one folder's tables share.
#pragma once

#include <chrono>

namespace hostadm::tables {

using Clock = std::chrono::steady_clock;

// Takes the folder's lock, waiting in line behind those who
// came earlier. Fails with -26 when the deadline passes.
void lock(int folder, Clock::time_point deadline);

// Also happens when the folder's descriptor is closed.
void unlock(int folder);

} // namespace hostadm::tables
