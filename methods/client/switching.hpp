// SPDX-License-Identifier: MIT
// The page of a request that switches a client's booting off or on.
#pragma once

#include <string>
#include <unistd.h>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/clients.hpp"
#include "server/dhcp_server.hpp"
#include "server/disabling.hpp"
#include "server/page.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace hostadm {

struct Switching {
    std::string verb; // disable, enable
    std::string purpose;
    void (*make)(const std::string &method, const server::Client &client, server::Journal &journal,
                 server::Report &report);
};

inline int switch_client(method::Call &call, const Switching &switching, server::Journal &journal) {
    const server::Client client = server::known_client(call.get("hostname"));
    server::Report report;
    switching.make(call.method(), client, journal, report);
    if (client.kind() == server::ClientKind::pc)
        server::tell_dhcp_server(report);
    report.tell(call);
    return 0;
}

inline int run_switching(int argc, char **argv, const Switching &switching) {
    const method::Description description{
        .name = "client/" + switching.verb,
        .purpose = switching.purpose,
        .arguments = {{"hostname", method::Kind::host, "the client's name", true}},
        .outputs = {server::changed_output},
        .columns = {{"step", "what was looked after"},
                    {"result", "done or unchanged"},
                    {"detail", "what stands there now"}},
        .edits = {"/etc/ethers", "/etc/dfs/dfstab"},
        .shares = {"the client's directories"},
        .values = server::client_values,
    };
    return server::run_page(argc, argv, description, [&](method::Call &call) {
        if (geteuid() != 0)
            server::fail(server::Code::not_root, switching.verb == "enable"
                                                     ? base::tr("only root may enable a client")
                                                     : base::tr("only root may disable a client"));
        const server::Claims claims(call.method(), call.get("hostname"),
                                    {{server::Claim::Kind::name, call.get("hostname")}});
        server::Transaction transaction(call, call.get("hostname"));
        return transaction.run_whole([&] { return switch_client(call, switching, transaction.journal()); });
    });
}

} // namespace hostadm
