// SPDX-License-Identifier: MIT
// The language in which texts come, for who must say it to others. How they are translated: base/translation.hpp.
#pragma once

#include <string>

namespace hostadm::base {

// That of the catalogue from which texts come, such as "de"; empty where they are as they are written in the sources.
std::string language_of_texts();

} // namespace hostadm::base
