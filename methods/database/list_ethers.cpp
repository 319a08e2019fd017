// SPDX-License-Identifier: MIT
#include <string>

#include "hostadm/method.hpp"
#include "server/host_tables.hpp"
#include "server/named_table.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "database/list_ethers",
    .purpose = "list the table of Ethernet addresses",
    .arguments = {{"table", Kind::path, "the table", false, "/etc/ethers"}},
    .columns = {{"ethernet", "Ethernet address"}, {"hostname", "whose it is"}},
};

int work(Call &call) {
    const std::string table = call.get("table");
    ManyRows rows;
    for (const auto &[ethernet, names] :
         HostTable(HostTable::Kind::ethernets, table).entries_in(read_named_table(table)))
        rows.add({{"ethernet", ethernet}, {"hostname", names.front()}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
