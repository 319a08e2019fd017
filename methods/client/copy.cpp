// SPDX-License-Identifier: MIT
// A new client like one that is there, root and all; what a failure leaves half done is taken back.
#include <unistd.h>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/claims.hpp"
#include "server/client_copy.hpp"
#include "server/clients.hpp"
#include "server/page.hpp"
#include "server/provisioning.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/copy",
    .purpose = "add a client like another one: what it boots, its shares' options, its swap size, its root",
    .arguments = {{"hostname", Kind::host, "the client that is there", true},
                  {"new_hostname", Kind::host, "the name of the new one", true},
                  {"address", Kind::address, "its IPv4 address", true},
                  {"ethernet", Kind::ethernet, "its Ethernet address", true}},
    .outputs = {{"pathname", "the root that was shared"},
                {"boot_program", "name of the boot program in /tftpboot, or /rplboot"},
                changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
    .edits = {"/export", "/tftpboot", "/rplboot", "/etc/bootparams", "/etc/hosts", "/etc/ethers",
              "/etc/dfs/dfstab"},
    .starts = {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd", "/usr/sbin/rpld"},
    .shares = {"the new client's directories"},
    .values = client_values,
};

int copy(Call &call, Claims &claims, Journal &journal) {
    require_command("/usr/sbin/share", base::tr("shares directories"));
    const Client old = known_client(call.get("hostname"));
    const NewClient client =
        copy_of(old, call.get("new_hostname"), call.get("address"), call.get("ethernet"));
    claims.add({{Claim::Kind::name, old.name}, {Claim::Kind::path, client.source.tree}});
    claims.add(client.claims());
    Report report;
    provision(call, client, journal, report);
    report.tell(call);
    return 0;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may copy a client"));
    const std::string name = call.get("new_hostname");
    Claims claims(call.method(), name, {});
    Transaction transaction(call, name);
    return transaction.run_whole([&] { return copy(call, claims, transaction.journal()); });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
