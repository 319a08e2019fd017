// SPDX-License-Identifier: MIT
// Once for a server: what PCs boot by.
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/boot_area.hpp"
#include "server/boot_tree.hpp"
#include "server/claims.hpp"
#include "server/daemons.hpp"
#include "server/dhcp_server.hpp"
#include "server/files.hpp"
#include "server/page.hpp"
#include "server/pc_area.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "netboot/setup_pc",
    .purpose = "let PCs boot from this server, with BIOS or UEFI: a boot loader's network tree, and a DHCP "
               "server that "
               "answers known clients only",
    .arguments =
        {{.name = "interface",
          .kind = Kind::word,
          .purpose =
              "the network interfaces whose PCs are answered, with commas between them (default: all)"},
         {.name = "router", .kind = Kind::address, .purpose = "router that PCs are told of (default: none)"}},
    .outputs = {changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
    .edits = {"/tftpboot/grub", "/etc/dnsmasq.d"},
    .starts = {"/usr/sbin/dnsmasq"},
};

std::vector<std::string> interfaces_asked_for(const Call &call) {
    if (!call.given("interface"))
        return {};
    const std::string asked = call.get("interface");
    const auto names = base::split(asked, ',');
    return {names.begin(), names.end()};
}

void require_dhcp_program() {
    if (access(dhcp_program, X_OK) != 0)
        fail(Code::missing_program,
             base::tr("{1}, which tells PCs their addresses, is missing; install it: apt-get install dnsmasq",
                      std::string(dhcp_program)));
}

void make_tree(Call &call, Journal &journal, Report &report) {
    call.progress(base::tr("making GRUB's network tree"));
    make_tftpboot_dir(call.method().c_str());
    const BootAreaLock lock;
    const bool made = ensure_boot_tree(lock, journal);
    std::string served;
    for (const Firmware &firmware : all_firmware())
        if (is_served(firmware))
            served += (served.empty() ? "" : ", ") + std::string(firmware.name);
        else
            report.warn(firmware.name, base::tr("PCs with {1} are not served; install {2} and run this again",
                                                firmware.name, firmware.package));
    report.step("boot loader", made, std::string(pc_boot_tree) + " for " + served);
}

bool write_settings(const std::vector<PcNetwork> &networks, Journal &journal) {
    const std::string wanted = dhcp_settings(networks, other_dhcp_settings());
    const base::FileText there = base::read_file(dhcp_settings_path);
    if (!there && !there.is_missing())
        fail(Code::system, base::tr("cannot read {1}: {2}", dhcp_settings_path, std::strerror(there.error)));
    if (there && there.text == wanted)
        return false;
    if (there && !is_own_dhcp_settings(there.text))
        fail(Code::taken,
             base::tr("{1} is there already and was not written by this; give it another name first",
                      std::string(dhcp_settings_path)));
    make_directories(parent_of(dhcp_settings_path), journal);
    journal.note(ChangedDhcpSettings{there.text, running_dhcp_server().has_value()});
    if (const int error = base::write_file(dhcp_settings_path, wanted); error != 0)
        fail(Code::system, base::tr("cannot write {1}: {2}", dhcp_settings_path, std::strerror(error)));
    if (const std::string defect = defect_of_dhcp_settings(); !defect.empty())
        fail(Code::unusable,
             base::tr("dnsmasq does not accept these settings beside its other ones: {1}", defect));
    return true;
}

void serve_settings(Call &call, const std::vector<PcNetwork> &networks, Journal &journal, Report &report) {
    call.progress(base::tr("telling the DHCP server"));
    for (const PcNetwork &network : networks)
        report.step("network", false, network.interface + " " + network.network + "/" + network.netmask);
    const auto runs = running_dhcp_server(); // before anything is started to look at the settings
    const bool written = write_settings(networks, journal);
    report.step("DHCP settings", written, dhcp_settings_path);
    if (!written && runs && has_read(*runs, dhcp_settings_path))
        report.step("DHCP", false, base::tr("dnsmasq serves them"));
    else
        report.step("DHCP", true, restart_dhcp_server(runs.has_value()));
}

void look_after_tftp(Report &report) {
    for (const BootDaemon &daemon : boot_daemons())
        if (daemon.service == "TFTP" && !daemon.running)
            report.warn(daemon.service,
                        base::tr("{1} does not run; start it: {2}", daemon.name, daemon.advice));
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may set this up"));
    const std::vector<PcNetwork> networks = pc_networks(interfaces_asked_for(call), call.get("router"));
    const Claims claims(call.method(), "PCs",
                        {{Claim::Kind::path, pc_boot_tree}, {Claim::Kind::path, dhcp_settings_path}});
    Transaction transaction(call, "PCs");
    return transaction.run_whole([&] {
        require_dhcp_program();
        Report report;
        make_tree(call, transaction.journal(), report);
        serve_settings(call, networks, transaction.journal(), report);
        look_after_tftp(report);
        report.tell(call);
        return 0;
    });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
