// SPDX-License-Identifier: MIT
// Whether a name or an address means this host, answered without asking the network.
#include "base/boundary.hpp"
#include "base/this_host.hpp"
#include "hostadm/tables.h"

int is_local_host(const char *host) {
    using namespace hostadm;
    return base::at_boundary(
        0, [&] { return host != nullptr && base::is_this_host(host, base::Lookup::hosts_table) ? 1 : 0; });
}
