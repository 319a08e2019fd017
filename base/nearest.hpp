// SPDX-License-Identifier: MIT
// The word that somebody may have meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hostadm::base {

// The one of the words that the wanted one is most like; empty when it is like none of them.
std::string nearest(const std::vector<std::string> &words, std::string_view wanted);

} // namespace hostadm::base
