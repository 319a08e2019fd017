// SPDX-License-Identifier: MIT
// The stop for exceptions of functions that have no failure to return: memory that is out ends the process.
#pragma once

#include <cstdlib>
#include <utility>

#include "base/boundary.hpp"

namespace hostadm {

template <typename Work> auto work_or_exit(Work &&work) noexcept -> decltype(work()) {
    return base::translated_at_boundary(std::forward<Work>(work),
                                        [](int) -> decltype(work()) { std::exit(EXIT_FAILURE); });
}

} // namespace hostadm
