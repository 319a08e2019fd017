// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include "hostadm/method.hpp"
#include "server/boot_links.hpp"
#include "server/client_entry.hpp"
#include "server/clients.hpp"
#include "server/host_tables.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/show",
    .purpose = "all that this server knows of one client",
    .arguments = {{"hostname", Kind::host, "the client's name", true}},
    .outputs = {{"name", "host name"},
                {"address", "IPv4 address, from /etc/hosts"},
                {"ethernet", "Ethernet address, from /etc/ethers"},
                {"architecture", "implementation architecture, from the name of the boot program"},
                {"boot_links", "yes, no, or what is wrong with the links in /tftpboot"},
                {"boot_program", "what the links lead to"},
                {"root", "SERVER:PATH of its root"},
                {"root_exists", "is the root there?"},
                {"share", "options with which the root is shared now"},
                {"share_at_boot", "options with which it is shared when this server boots"},
                {"swap", "SERVER:PATH of its swap file"},
                {"swap_size", "bytes in the swap file"},
                {"dump", "SERVER:PATH of its dump file"},
                {"bootparams", "all its items"}},
    .columns = {{"link", "name in /tftpboot"}, {"target", "what it leads to"}, {"whole", "is that there?"}},
};

int work(Call &call) {
    const std::string name = client_name_as_written(call.get("hostname"));
    const std::string items = client_items(name);
    if (items.empty())
        return call.fail("no client " + name + " in " + bootparams_path);
    const std::string address = hosts_table().key_of(name);
    const BootLinks links = address.empty() ? BootLinks() : boot_links_of(address);
    const std::string program = links.empty() ? "" : links.front().target;
    const std::string root = path_of_item(items, "root"), swap = path_of_item(items, "swap");

    struct stat file {};
    std::string share_at_boot;
    for (const TableShare &share : table_shares())
        if (share.path == root && !share.failed)
            share_at_boot = share.options;
    const auto shares = current_shares();
    const auto shared = shares.find(root);

    call.set("name", name);
    call.set("address", address);
    call.set("ethernet", ethers_table().key_of(name));
    call.set("architecture", architecture_of(program));
    call.set("boot_links", address.empty() ? "no address" : boot_links_state(address_digits(address), links));
    call.set("boot_program", program);
    call.set("root", item_of(items, "root"));
    call.set("root_exists", stat(root.c_str(), &file) == 0 && S_ISDIR(file.st_mode) ? "yes" : "no");
    call.set("share", shared == shares.end() ? "" : shared->second);
    call.set("share_at_boot", share_at_boot);
    call.set("swap", item_of(items, "swap"));
    call.set("swap_size", stat(swap.c_str(), &file) == 0 ? std::to_string(file.st_size) : "");
    call.set("dump", item_of(items, "dump"));
    call.set("bootparams", items);
    for (const BootLink &link : links)
        call.row({{"link", link.name}, {"target", link.target}, {"whole", link.whole ? "yes" : "no"}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
