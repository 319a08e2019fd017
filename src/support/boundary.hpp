// SPDX-License-Identifier: MIT
// The stop for exceptions at the edge of the library: none may cross into C.
#pragma once

#include <exception>
#include <utility>

namespace hostadm {

// Runs the work of an exported function; an exception (memory is out) becomes the function's failure status.
template <typename Work, typename Status> Status at_boundary(Status failure, Work &&work) noexcept {
    try {
        return std::forward<Work>(work)();
    } catch (const std::exception &) {
        return failure;
    }
}

} // namespace hostadm
