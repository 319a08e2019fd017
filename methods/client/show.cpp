// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include "hostadm/method.hpp"
#include "server/clients.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/show",
    .purpose = "all that this server knows of one client",
    .arguments = {{"hostname", Kind::host, "the client's name", true}},
    .outputs = {{"name", "host name"},
                {"kind", "diskless, dataless, cache-only, install, rpl, pc, diskfull or unknown"},
                {"address", "IPv4 address, from /etc/hosts"},
                {"ethernet", "Ethernet address, from /etc/ethers"},
                {"architecture", "implementation architecture, from the name of the boot program"},
                {"boot_links",
                 "yes, no, or what is wrong with the links in /tftpboot, or with the menu of a PC"},
                {"boot_program", "what the links lead to; of a PC its kernel"},
                {"root", "SERVER:PATH of its root"},
                {"root_exists", "is the root there?"},
                {"share", "options with which the root is shared now"},
                {"share_at_boot", "options with which it is shared when this server boots"},
                {"swap", "SERVER:PATH of its swap file"},
                {"swap_size", "bytes in the swap file"},
                {"swapsize", "megabytes of swap area that it is told of"},
                {"dump", "SERVER:PATH of its dump file"},
                {"install", "SERVER:PATH of the system that it installs"},
                {"exec", "SERVER:PATH of its executables"},
                {"boottype", "its kind, as it is told"},
                {"bootparams", "all its items"},
                {"disabled", "is it kept from booting (client/disable)?"}},
    .columns = {{"link", "name in /tftpboot; of a PC its menu"},
                {"target", "what it leads to"},
                {"whole", "is that there?"}},
    .values = client_values,
};

int work(Call &call) {
    const Client client = known_client(call.get("hostname"));
    struct stat file {};
    const ShareState share = share_state(client.root());

    call.set("name", client.name);
    call.set("kind", name_of(client.kind()));
    call.set("address", client.address);
    call.set("ethernet", client.ethernet);
    call.set("architecture", client.architecture());
    call.set("boot_links", client.boot_links());
    call.set("boot_program", client.boot_program());
    call.set("root", client.item("root"));
    call.set("root_exists", stat(client.root().c_str(), &file) == 0 && S_ISDIR(file.st_mode) ? "yes" : "no");
    call.set("share", share.options_now);
    call.set("share_at_boot", share.options_at_boot);
    call.set("swap", client.item("swap"));
    call.set("swap_size", stat(client.swap().c_str(), &file) == 0 ? std::to_string(file.st_size) : "");
    call.set("swapsize", client.value("swapsize"));
    call.set("dump", client.item("dump"));
    call.set("install", client.item("install"));
    call.set("exec", client.item("exec"));
    call.set("boottype", client.value("boottype"));
    call.set("bootparams", client.items);
    call.set("disabled", client.disabled ? "yes" : "no");
    for (const BootLink &link : client.links)
        call.row({{"link", link.name}, {"target", link.target}, {"whole", link.whole ? "yes" : "no"}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
