// SPDX-License-Identifier: MIT
// What stands in the way of a client. Each check throws std::runtime_error with the reason.
#pragma once

#include "methods/client/add_diskless/client.hpp"

namespace hostadm::diskless {

void check_tools();

// Everything that can be known before the first step. Whether the client is known with this data already.
bool check(const method::Call &call, const Client &client);

// These two files may also come with the root.
void check_swap(const Client &client);
void check_dump(const Client &client);

} // namespace hostadm::diskless
