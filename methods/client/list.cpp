// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/clients.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/list",
    .purpose = "the clients that boot from this server",
    .columns = {{"name", "host name"},
                {"kind", "diskless, dataless, cache-only, install, rpl, pc, diskfull or unknown"},
                {"address", "IPv4 address, from /etc/hosts"},
                {"ethernet", "Ethernet address, from /etc/ethers"},
                {"architecture", "implementation architecture, from the name of the boot program"},
                {"root", "root directory, or what it mounts instead of one"},
                {"boot_links",
                 "yes, no, or what is wrong with the links in /tftpboot, or with the menu of a PC"},
                {"shared", "is that shared now?"},
                {"disabled", "is it kept from booting (client/disable)?"}},
};

int work(Call &) {
    ManyRows rows;
    const auto shares = current_shares();
    for (const Client &client : all_clients())
        rows.add({{"name", client.name},
                  {"kind", name_of(client.kind())},
                  {"address", client.address},
                  {"ethernet", client.ethernet},
                  {"architecture", client.architecture()},
                  {"root", client.mounted()},
                  {"boot_links", client.boot_links()},
                  {"shared", shares.count(client.mounted()) != 0 ? "yes" : "no"},
                  {"disabled", client.disabled ? "yes" : "no"}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
