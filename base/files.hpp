// SPDX-License-Identifier: MIT
// A small file as a text.
#pragma once

#include <string>

namespace hostadm::base {

// What can be read of the file, perhaps nothing: of one that is missing, that is none, or that goes away
// meanwhile, as those of a process do.
std::string file_contents(const std::string &path);

} // namespace hostadm::base
