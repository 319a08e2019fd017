// SPDX-License-Identifier: MIT
// Everything that names the old value follows, or, when a step fails, goes back.
#include <algorithm>
#include <initializer_list>
#include <unistd.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/client_change.hpp"
#include "server/new_client.hpp"
#include "server/page.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/change",
    .purpose =
        "give a client another name, address, Ethernet address, server name, boot program, swap size or "
        "share options",
    .arguments = {{"hostname", Kind::host, "the client's name", true},
                  {"new_hostname", Kind::host, "the name that it is to have"},
                  {"address", Kind::address, "the IPv4 address that it is to have"},
                  {"ethernet", Kind::ethernet, "its new Ethernet address"},
                  {"server", Kind::host, "this server's name, as the client is to be told"},
                  {"boot_program", Kind::path, "the file that it is to boot"},
                  {"swap_size", Kind::size, "the size that its swap file is to have"},
                  {"share_options", Kind::options,
                   "the options with which all that is its own is to be shared"}},
    .outputs = {changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done or unchanged"},
                {"detail", "what stands there now"}},
    .edits = {"/tftpboot", "/etc/bootparams", "/etc/hosts", "/etc/ethers", "/etc/dfs/dfstab", "/rplboot",
              "the client's swap file"},
    .shares = {"the client's directories"},
    .values = client_values,
};

WantedChange wanted(const Call &call) {
    WantedChange change{.name = call.get("new_hostname"),
                        .address = call.get("address"),
                        .ethernet = call.get("ethernet"),
                        .server = call.get("server"),
                        .boot_program = call.get("boot_program"),
                        .swap_size = {},
                        .share_options = call.get("share_options")};
    if (call.given("swap_size"))
        change.swap_size = bytes_in(call.get("swap_size"));
    return change;
}

int change(Call &call, Claims &claims, Journal &journal) {
    Report report;
    WantedChange asked = wanted(call);
    Client client = find_client(call.get("hostname"));
    // Run once more, it finds the client under its new name.
    if (client.items.empty() && !asked.name.empty() && !find_client(asked.name).items.empty()) {
        client = find_client(asked.name);
        report.step("name", false, client.name);
    }
    if (client.items.empty())
        client = known_client(client.name); // says that there is none
    const ClientChange change(client, asked);
    claims.add(change.claims());
    note_claims(journal, change.claims());
    change.make(call.method(), journal, report);
    if (client.kind() == ClientKind::pc)
        tell_dhcp_server(report);
    report.tell(call);
    return 0;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may change a client"));
    const auto names = {"new_hostname", "address",   "ethernet",     "server",
                        "boot_program", "swap_size", "share_options"};
    if (std::none_of(names.begin(), names.end(), [&](const char *name) { return call.given(name); }))
        return call.refuse(base::tr("nothing was said to change: give new_hostname, address, ethernet, "
                                    "server, boot_program, swap_size or share_options"));
    Claims claims(call.method(), call.get("hostname"), {});
    // Cut off in the middle, it would leave tables that name the client in two ways.
    Transaction transaction(call, call.get("hostname"), Transaction::Kept{description.name});
    return transaction.run_whole([&] { return change(call, claims, transaction.journal()); });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
