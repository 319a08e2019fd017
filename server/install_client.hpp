// SPDX-License-Identifier: MIT
// A client that boots to have an operating system installed on its own disk: it gets a boot program, and is told where
// the install hierarchy lies and, if wanted, the folder that says how to install.
#pragma once

#include <string>
#include <vector>

#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/journal.hpp"
#include "server/new_client.hpp"
#include "server/report.hpp"

namespace hostadm::server {

struct InstallClient {
    NewClient client;   // without a root
    std::string config; // empty: none
    std::string share_options;

    std::vector<BootparamsItem> items() const;
    std::vector<std::string> shared_directories() const;
    std::vector<Claim> claims() const;
};

// From the arguments of a method. Throws Failure when the request makes no sense.
InstallClient read_install_client(method::Call &call);
// Makes what is missing of it. Throws Failure.
void provision(method::Call &call, const InstallClient &wanted, Journal &journal, Report &report);

} // namespace hostadm::server
