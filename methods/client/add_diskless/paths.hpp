// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace hostadm::diskless {

// Also a link that leads nowhere.
bool exists(const std::string &path);
bool is_directory(const std::string &path);
std::string parent_of(const std::string &path);

} // namespace hostadm::diskless
