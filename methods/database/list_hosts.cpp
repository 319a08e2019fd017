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
    .name = "database/list_hosts",
    .purpose = "list the hosts table",
    .arguments = {{"table", Kind::path, "the table, for instance that of a client's root", false,
                   "/etc/hosts"}},
    .columns = {{"address", "IP address"}, {"hostname", "its name"}, {"aliases", "further names"}},
};

int work(Call &call) {
    const std::string table = call.get("table");
    ManyRows rows;
    for (const auto &[address, names] :
         HostTable(HostTable::Kind::addresses, table).entries_in(read_named_table(table))) {
        std::string aliases;
        for (std::size_t at = 1; at < names.size(); ++at)
            aliases += (at == 1 ? "" : " ") + names[at];
        rows.add({{"address", address}, {"hostname", names.front()}, {"aliases", aliases}});
    }
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
