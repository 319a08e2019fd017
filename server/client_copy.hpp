// SPDX-License-Identifier: MIT
// A new client like one that is there.
#pragma once

#include <string>

#include "server/clients.hpp"
#include "server/new_client.hpp"

namespace hostadm::server {

// With the old one's identity, kind, items, shares' options and swap size, and a root copied from its root; paths that
// bear the old name bear the new one. Throws Failure for a client that has no root of its own here, or no boot
// program.
NewClient copy_of(const Client &old, const std::string &name, const std::string &address,
                  const std::string &ethernet);

} // namespace hostadm::server
