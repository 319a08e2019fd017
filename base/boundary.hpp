// SPDX-License-Identifier: MIT
// The stop for exceptions at the edge of C: none may cross into C.
#pragma once

#include <cerrno>
#include <exception>

namespace hostadm::base {

// Memory is all that can run out in here.
template <typename Work> int at_boundary(Work &&work) noexcept {
    try {
        return work();
    } catch (const std::exception &) {
        return ENOMEM;
    }
}

} // namespace hostadm::base
