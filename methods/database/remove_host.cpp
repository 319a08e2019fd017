// SPDX-License-Identifier: MIT
#include "methods/database/removing.hpp"

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
    .values = {{"hostname", "database/list_hosts", "hostname"},
               {"address", "database/list_hosts", "address"}},
};

} // namespace

int main(int argc, char **argv) {
    return hostadm::server::run_page(argc, argv, description, [](Call &call) {
        return hostadm::remove_lines(call, hostadm::server::HostTable::Kind::addresses, "address");
    });
}
