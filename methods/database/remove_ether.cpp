// SPDX-License-Identifier: MIT
#include "methods/database/removing.hpp"

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
    .values = {{"hostname", "database/list_ethers", "hostname"},
               {"ethernet", "database/list_ethers", "ethernet"}},
};

} // namespace

int main(int argc, char **argv) {
    return hostadm::server::run_page(argc, argv, description, [](Call &call) {
        return hostadm::remove_lines(call, hostadm::server::HostTable::Kind::ethernets, "ethernet");
    });
}
