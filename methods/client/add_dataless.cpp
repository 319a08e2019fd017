// SPDX-License-Identifier: MIT
// A client that boots from its own disk, with its root and its swap area on it, and has the rest of its system from
// this server; what a failure leaves half done is taken back.
#include <algorithm>
#include <string>
#include <unistd.h>
#include <vector>

#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/bootparams.hpp"
#include "server/claims.hpp"
#include "server/client_root.hpp"
#include "server/clients.hpp"
#include "server/common_shares.hpp"
#include "server/files.hpp"
#include "server/new_client.hpp"
#include "server/page.hpp"
#include "server/provisioning.hpp"
#include "server/report.hpp"
#include "server/roots.hpp"
#include "server/services.hpp"
#include "server/shares.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/add_dataless",
    .purpose = "let a client with root and swap on its own disk have the rest of its system from this server",
    .arguments = {{"hostname", Kind::host, "the client's name", true},
                  {"address", Kind::address, "its IPv4 address", true},
                  {"ethernet", Kind::ethernet, "its Ethernet address", true},
                  {"instruction_set", Kind::word, "its instruction set, such as kel4", true},
                  {"os_name", Kind::word, "name of its operating system", true},
                  {"os_version", Kind::release, "version of it", true},
                  {"execpath", Kind::path, "the executables that it mounts (default: those of the service)"},
                  {"server", Kind::host,
                   "this server's name, as the client is told (default: this host's name)"}},
    .outputs = {{"pathname", "the executables that were shared"}, changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
    .edits = {"/etc/bootparams", "/etc/hosts", "/etc/ethers", "/etc/dfs/dfstab"},
    .starts = {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"},
    .shares = {"execpath="},
    .values = new_client_values,
};

bool belongs_to_service(const std::string &path) {
    const std::vector<Service> services = all_services();
    return std::any_of(services.begin(), services.end(),
                       [&](const Service &service) { return service.holds(path); });
}

std::string executables(const Call &call) {
    if (call.given("execpath"))
        return real_path_of(call.get("execpath"));
    const auto service = find_service(call.get("os_name"), call.get("os_version"),
                                      base::lower_case(call.get("instruction_set")));
    if (!service || service->executables.empty())
        fail(Code::not_found,
             base::tr("this server keeps no executables of {1} {2} for {3}; give execpath, or add the "
                      "service (service/add)",
                      call.get("os_name"), call.get("os_version"), call.get("instruction_set")));
    return service->executables;
}

void check(const Call &call, const NewClient &client, const std::string &path) {
    check_name_and_addresses(call, client);
    const Client there = find_client(client.name);
    if (there.disabled)
        fail(Code::taken, base::tr("{1} is a client already, and disabled; client/enable lets it boot again",
                                   client.name));
    if (const std::string item = there.item("exec");
        !there.items.empty() &&
        (there.kind() != ClientKind::dataless || (!item.empty() && there.path("exec") != path)))
        fail(Code::taken,
             base::tr("{1} is a client already, of the kind {2}, with {3}; remove it first (client/remove)",
                      client.name, name_of(there.kind()), there.items));
    if (!is_directory(path))
        fail(Code::not_found, base::tr("there is no directory {1} of executables", path));
    if (is_near_server_root(path))
        fail(Code::unusable, base::tr("{1} is too near to the root of this server", path));
    if (const std::string root = client_root_of(path); !root.empty())
        fail(Code::unusable, base::tr("{1} lies in the root of a client, {2}", path, root));
}

int add(Call &call, Claims &claims, Journal &journal) {
    require_command("/usr/sbin/share", base::tr("shares directories"));
    NewClient client;
    client.name = call.get("hostname");
    client.address = call.get("address");
    client.ethernet = call.get("ethernet");
    client.kind = ClientKind::dataless;
    client.server = call.given("server") ? call.get("server") : base::own_host_name();
    const std::string path = executables(call);
    claims.add({{Claim::Kind::address, client.address}, {Claim::Kind::ethernet, client.ethernet}});
    check(call, client, path);

    Report report;
    call.progress(base::tr("sharing {1}", path));
    // Those of a service are withdrawn with it, others with the last client that runs from there.
    const auto share = belongs_to_service(path) ? ensure_share : ensure_common_share;
    report.step("share", share(call.method(), path, executables_share_options, journal),
                path + " " + executables_share_options);
    enter_in_tables(call, client, {{"exec", client.server, path}, boot_type_item(client.kind)}, journal,
                    report);
    look_after_daemons(call, client, report);
    for (const auto &[about, text] : warnings_about(client))
        report.warn(about, text);
    flush_file_systems({"/etc"});
    call.set("pathname", path);
    report.tell(call);
    return 0;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may add a client"));
    Claims claims(call.method(), call.get("hostname"), {{Claim::Kind::name, call.get("hostname")}});
    Transaction transaction(call, call.get("hostname"));
    return transaction.run_whole([&] { return add(call, claims, transaction.journal()); });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
