// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/list_share_entries",
    .purpose = "list the table of shares that are made at boot, /etc/dfs/dfstab",
    .columns = {{"path", "the directory"},
                {"options", "its options"},
                {"description", "words about the share"},
                {"at_boot", "yes, or failed: a comment that tells of a share that could not be made"}},
};

int work(Call &) {
    ManyRows rows;
    for (const TableShare &line : table_shares())
        rows.add({{"path", line.path},
                  {"options", line.options},
                  {"description", line.description},
                  {"at_boot", line.failed ? "failed" : "yes"}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
