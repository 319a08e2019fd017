// SPDX-License-Identifier: MIT
// The packages without which this server serves no cache-only clients.
#pragma once

#include "hostadm/method.hpp"
#include "server/clients.hpp"
#include "server/report.hpp"

namespace hostadm::server {

// Those of the server itself, and of the service whose system the client runs, if this server keeps it. Installs what
// is missing, or throws Failure that names the request which does. What was installed stays, whatever becomes of the
// run.
void ensure_cachelet_packages(const method::Call &call, const Client &client, bool install, Report &report);

} // namespace hostadm::server
