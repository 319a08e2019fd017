// SPDX-License-Identifier: MIT
// How a step ends that cannot be done.
#pragma once

#include <stdexcept>
#include <string>

namespace hostadm::diskless {

// A failure that the library has recorded already.
struct Recorded {};

// An argument that is of no use on any server, whatever is there.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void refuse(const std::string &text); // throws Refused
// These throw std::runtime_error.
[[noreturn]] void fail(const std::string &text);
[[noreturn]] void fail_errno(const std::string &what);

} // namespace hostadm::diskless
