// SPDX-License-Identifier: MIT
// A failed edit of a system table in words for its administrator.
#pragma once

#include <string>

namespace hostadm::server {

// `status` is a status of the table interface (hostadm/table_edit.hpp), not 0.
std::string edit_failure(const std::string &table, int status);

} // namespace hostadm::server
