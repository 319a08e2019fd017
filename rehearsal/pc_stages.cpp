// SPDX-License-Identifier: MIT
// The stages of a PC before there is a file system: its address and what to boot by DHCP, then the boot loader, its
// menu, the kernel and the initramfs by TFTP.
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "rehearsal/dhcp.hpp"
#include "rehearsal/stages.hpp"
#include "rehearsal/tftp.hpp"
#include "server/boot_area.hpp"
#include "server/pc_area.hpp"

namespace hostadm::rehearsal {

namespace {

using namespace std::chrono_literals;
using server::Severity;
using server::Stage;

constexpr auto patience = 500ms;
constexpr int tries = 4;

// A file that the boot loader or the firmware loads. Nothing: it cannot, and why is found.
std::optional<std::string> load(Journey &journey, const std::string &server, const std::string &file) {
    const Started &daemon = journey.daemon(Service::tftp);
    Fetched fetched = fetch_by_tftp(server, file, client_interface, 1000ms);
    const std::string size = std::to_string(fetched.content.size() / 1000) + " kB";
    journey.note(daemon.start.name, base::tr("the file {1}?", file), fetched.whole ? size : fetched.reason,
                 !fetched.silent);
    journey.walked.seen["tftp " + file] = fetched.whole    ? fingerprint(fetched.content)
                                          : fetched.silent ? ""
                                                           : "refused";
    const bool is_empty = fetched.whole && fetched.content.empty();
    if (fetched.whole && !is_empty)
        return std::move(fetched.content);
    const std::string reason = is_empty ? base::tr("it is empty") : fetched.reason;
    journey.find(Severity::error, Stage::boot_program,
                 fetched.silent ? where_of(daemon) : std::string(server::tftpboot) + "/" + file,
                 fetched.silent
                     ? base::tr("TFTP does not give {1}: {2}; {3}", file, reason, why_silent(daemon))
                     : base::tr("TFTP does not give {1}: {2}", file, reason),
                 base::tr("{1} does not boot", journey.client.name), "hostadm check " + journey.client.name);
    return std::nullopt;
}

// The server's part of the kernel's own settings: what a client without tables of its own would learn by asking.
void learn_from_menu(Journey &journey, const server::PcMenu &menu) {
    journey.own_name = menu.hostname;
    journey.files["root"] = {
        .server = menu.server_address, .address = menu.server_address, .path = menu.root};
    for (const server::BootparamsItem &item : journey.client.items)
        if (item.key == "swap" || item.key == "dump")
            journey.files[item.key] = {
                .server = menu.server_address, .address = menu.server_address, .path = item.path};
}

} // namespace

StageEnd learn_address_by_dhcp(Journey &journey) {
    const BootingClient &client = journey.client;
    const Started &daemon = journey.daemon(Service::dhcp);
    if (client.ethernet.empty())
        return end_without_ethernet(journey, daemon);
    const std::string question = base::tr("which address has {1}?", client.ethernet);
    for (const auto system : {ClientSystem::bios, ClientSystem::uefi}) {
        const std::string asks =
            question + (system == ClientSystem::bios ? " (DHCP, BIOS)" : " (DHCP, UEFI)");
        const auto answer = ask_dhcp(client_interface, system, patience, tries);
        journey.note(daemon.start.name, asks, answer ? answer->address + ", boot " + answer->boot_file : "",
                     answer.has_value());
        if (!answer) {
            journey.find(Severity::error, Stage::address, where_of(daemon),
                         base::tr("nobody answers the DHCP of {1}; {2}", client.ethernet, why_silent(daemon)),
                         base::tr("{1} gets no address and does not go on", client.name),
                         "hostadm check " + client.name);
            return failed(base::tr("no answer to the DHCP of {1}", client.ethernet));
        }
        if (answer->address != client.address) {
            journey.find(Severity::error, Stage::address, "/etc/ethers",
                         base::tr("{1} gets the address {2}, but {3} has {4} in the hosts table",
                                  client.ethernet, answer->address, client.name, client.address),
                         base::tr("{1} boots as another host, or not at all", client.name),
                         "hostadm check " + client.name);
            return failed(base::tr("got {1} instead of {2}", answer->address, client.address));
        }
        journey.boot_files.push_back({answer->boot_server, answer->boot_file});
        journey.own_address = answer->address;
        journey.server_address = answer->server;
    }
    take_learned_address(journey);
    return passed(journey.own_address + " from " + journey.server_address);
}

StageEnd load_boot_loaders(Journey &journey) {
    std::string loaded;
    for (const auto &[server, file] : journey.boot_files) {
        if (!load(journey, server, file))
            return failed(file);
        loaded += (loaded.empty() ? "" : ", ") + file;
    }
    return passed(loaded);
}

StageEnd load_menu(Journey &journey) {
    const BootingClient &client = journey.client;
    const std::string file = "grub/grub.cfg-" + server::address_digits(journey.own_address);
    const auto text = load(journey, journey.server_address, file);
    if (!text)
        return failed(file);
    const server::PcMenu menu = server::read_pc_menu(*text);
    const server::BootparamsItem *root = client.item("root");
    std::string defect;
    if (menu.system.empty() || menu.root.empty())
        defect = base::tr("it names no kernel with a root by NFS");
    else if (menu.address != journey.own_address)
        defect = base::tr("it tells the kernel the address {1}", menu.address);
    else if (root != nullptr && menu.root != root->path)
        defect = base::tr("it names the root {1}, and bootparams {2}", menu.root, root->path);
    else if (!is_own_address(journey.network, menu.server_address))
        defect =
            base::tr("it names the server {1}, which is none of this one's addresses", menu.server_address);
    if (!defect.empty()) {
        journey.find(Severity::error, Stage::boot_program, std::string(server::tftpboot) + "/" + file, defect,
                     base::tr("{1} does not boot what is meant for it", client.name),
                     "hostadm check " + client.name);
        return failed(file + ": " + defect);
    }
    learn_from_menu(journey, menu);
    journey.system = menu.system;
    if (menu.nfs4)
        journey.walked.not_tried.push_back(
            base::tr("NFS of version 4: its root is mounted by version 3 here"));
    return passed(file + ": " + menu.system + ", root " + menu.root);
}

StageEnd load_kernel(Journey &journey) {
    for (const char *name : {"vmlinuz", "initrd.img"})
        if (const std::string file = "linux/" + journey.system + "/" + name;
            !load(journey, journey.server_address, file))
            return failed(file);
    return passed("linux/" + journey.system + "/vmlinuz, initrd.img");
}

} // namespace hostadm::rehearsal
