// SPDX-License-Identifier: MIT
// What there is of a tree, to be compared with what there is of it later.
#pragma once

#include <string>
#include <vector>

#include "base/beneath.hpp"

namespace hostadm::base {

// A line for each entry: its path, type, mode and owner, where a link leads, and the size and time of a file. Times of
// directories do not count: they tell of files that came and went. What cannot be looked into is told as such.
std::vector<std::string> state_of_tree(const Beneath &directory);

} // namespace hostadm::base
