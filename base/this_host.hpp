// SPDX-License-Identifier: MIT
// Whether a host name or address means this host.
#pragma once

#include <string_view>

namespace hostadm::base {

// The empty name means this host.
bool is_this_host(std::string_view host);

} // namespace hostadm::base
