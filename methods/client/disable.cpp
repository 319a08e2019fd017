// SPDX-License-Identifier: MIT
#include <unistd.h>

#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/clients.hpp"
#include "server/disabling.hpp"
#include "server/page.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/disable",
    .purpose = "keep a client from booting; nothing of it is deleted",
    .arguments = {{"hostname", Kind::host, "the client's name", true}},
    .outputs = {changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done or unchanged"},
                {"detail", "what stands there now"}},
    .edits = {"/tftpboot", "/etc/bootparams", "/etc/ethers"},
};

int disable(Call &call, Journal &journal) {
    const Client client = find_client(call.get("hostname"));
    if (client.items.empty())
        fail(Code::not_found, "there is no client " + client.name +
                                  " in /etc/bootparams; hostadm run client/list "
                                  "tells which there are");
    Report report;
    disable_client(call.method(), client, journal, report);
    report.tell(call);
    return 0;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, "only root may disable a client");
    const Claims claims(call.method(), call.get("hostname"), {{Claim::Kind::name, call.get("hostname")}});
    Transaction transaction(call, call.get("hostname"));
    if (transaction.run([&] { return disable(call, transaction.journal()); }))
        return 0;
    transaction.take_back();
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
