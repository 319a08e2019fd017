// SPDX-License-Identifier: MIT
// How a step ends that cannot be done.
#pragma once

#include <string>

namespace hostadm::diskless {

// A failure that the library has recorded already.
struct Recorded {};

// These throw std::runtime_error.
[[noreturn]] void fail(const std::string &text);
[[noreturn]] void fail_errno(const std::string &what);

} // namespace hostadm::diskless
