// SPDX-License-Identifier: MIT
// Daemons of this host, and programs that are run for what they say.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/processes.hpp"

namespace compat {

// Root's processes of this short name that see the same root directory as this one, by number.
std::vector<hostadm::base::Process> daemons_named(std::string_view name);

// Throws "PROGRAM failed: FIRST LINE" unless it ends well.
void run_or_fail(const std::vector<std::string> &words);

} // namespace compat
