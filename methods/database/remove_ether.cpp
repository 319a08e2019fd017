// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/host_tables.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "database/remove_ether",
    .purpose = "remove an Ethernet address, or those of a host, from their table; nobody answers it any more "
               "when it asks for its address",
    .arguments = {{"ethernet", Kind::ethernet, "Ethernet address, in any usual spelling"},
                  {"hostname", Kind::host, "whose it is"},
                  {"table", Kind::path, "the table", false, "/etc/ethers"}},
    .outputs = {{"removed", "whose it was"}, changed_output},
    .edits = {"table="},
};

int work(Call &call) {
    const std::string ethernet = call.get("ethernet"), name = call.get("hostname");
    if (ethernet.empty() && name.empty())
        return call.refuse("say which line: give ethernet, hostname or both");
    const HostTable table(HostTable::Kind::ethernets, call.get("table"));
    const RemovedEntries removed = remove_entries(table, ethernet, name);
    if (removed.changed)
        call.set("removed", removed.names);
    tell_changed(call, removed.changed);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
