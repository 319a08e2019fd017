// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/host_tables.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "database/remove_host",
    .purpose = "remove the line of an address, or of a name, from the hosts table",
    .arguments = {{"address", Kind::address, "IPv4 address"},
                  {"hostname", Kind::host, "the first name of the line"},
                  {"table", Kind::path, "the table, for instance that of a client's root", false,
                   "/etc/hosts"}},
    .outputs = {{"removed", "the names that went with the line"}, changed_output},
    .edits = {"table="},
};

int work(Call &call) {
    const std::string address = call.get("address"), name = call.get("hostname");
    if (address.empty() && name.empty())
        return call.refuse("say which line: give address, hostname or both");
    const HostTable table(HostTable::Kind::addresses, call.get("table"));
    const RemovedEntries removed = remove_entries(table, address, name);
    if (removed.changed)
        call.set("removed", removed.names);
    tell_changed(call, removed.changed);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
