// SPDX-License-Identifier: MIT
#include <string>
#include <unistd.h>
#include <vector>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/boot_area.hpp"
#include "server/boot_tree.hpp"
#include "server/claims.hpp"
#include "server/dhcp_server.hpp"
#include "server/files.hpp"
#include "server/page.hpp"
#include "server/pc_area.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "netboot/remove_pc",
    .purpose = "take away what netboot/setup_pc has made: no PC is answered any more",
    .outputs = {changed_output},
    .edits = {"/tftpboot/grub", "/etc/dnsmasq.d"},
    .starts = {"/usr/sbin/dnsmasq"},
};

void require_no_clients() {
    if (const std::vector<std::string> menus = pc_menus(); !menus.empty())
        fail(Code::taken,
             base::tr("PCs boot from this server by {1}; remove those clients first (client/remove)",
                      base::joined(menus)));
}

// False: there are none of ours.
bool remove_settings() {
    const base::FileText there = base::read_file(dhcp_settings_path);
    if (!is_own_dhcp_settings(there.text))
        return false;
    if (unlink(dhcp_settings_path) != 0)
        fail_errno(base::tr("cannot remove {1}", dhcp_settings_path));
    flush_file_systems({dhcp_settings_path});
    if (running_dhcp_server())
        restart_dhcp_server(true);
    return true;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may take this away"));
    const Claims claims(call.method(), "PCs",
                        {{Claim::Kind::path, pc_boot_tree}, {Claim::Kind::path, dhcp_settings_path}});
    require_no_clients();
    const bool settings = remove_settings();
    const bool tree = is_directory(tftpboot) && remove_boot_tree(BootAreaLock());
    tell_changed(call, settings || tree);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
