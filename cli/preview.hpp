// SPDX-License-Identifier: MIT
// A preview that another host asks for.
#pragma once

#include "hostadm/runner.hpp"

namespace hostadm::cli {

// Previews here what the request asks for. The outcome carries the report as an output that no method has.
framework::Outcome preview_for_another_host(const framework::Request &request);

} // namespace hostadm::cli
