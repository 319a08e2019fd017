// SPDX-License-Identifier: MIT
// PCs: the DHCP server and its settings, the boot loader's tree, and each client's menu with the kernel that it names.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "base/beneath.hpp"
#include "base/descriptor.hpp"
#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/boot_tree.hpp"
#include "server/checks/subjects.hpp"
#include "server/initramfs.hpp"
#include "server/pc_client.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr const char *setup = "hostadm run netboot/setup_pc";
constexpr const char *restart = "service dnsmasq restart";
constexpr std::uint16_t dhcp_port = 67;

bool is_whole_file(const std::string &path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && file.st_size > 0;
}

Finding of_dhcp(const std::string &where, const std::string &what, const std::string &repair) {
    return {.stage = Stage::address,
            .where = where,
            .what = what,
            .why = base::tr("no PC is told its address and what to boot"),
            .repair = repair};
}

Findings dhcp_findings(const Snapshot &server) {
    const PcService &service = server.pc;
    if (service.settings.empty())
        return {
            of_dhcp(service.settings_path, base::tr("the settings of the DHCP server are missing"), setup)};
    if (!service.process) {
        const bool taken = server.daemons.is_open(Socket::Kind::udp, dhcp_port, 0);
        return {of_dhcp("dnsmasq",
                        taken ? base::tr("it does not run, and another program has its port 67")
                              : base::tr("it does not run"),
                        taken ? "ss -lunp sport = :67 # tells which; end that; " + std::string(restart)
                              : restart)};
    }
    const std::string place = "dnsmasq, process " + std::to_string(*service.process);
    Findings found;
    if (!service.knows_settings)
        found.push_back(of_dhcp(
            place, base::tr("it was started before {1} was changed", service.settings_path), restart));
    else if (server.daemons.sockets_known && !server.daemons.is_open(Socket::Kind::udp, dhcp_port, 0))
        found.push_back(of_dhcp(place, base::tr("it has no socket for DHCP"), restart));
    if (!service.knows_tables)
        found.push_back(
            {.stage = Stage::address,
             .where = place,
             .what = base::tr("it has not read /etc/hosts and /etc/ethers since they were changed"),
             .why = base::tr("PCs that were added or changed since are not answered as the tables say"),
             .repair = "kill -HUP " + std::to_string(*service.process)});
    return found;
}

Findings tree_findings(const Snapshot &server) {
    Findings found;
    const std::string tree = server.boot_area.path + "/grub";
    const auto &all = all_firmware();
    const bool any =
        std::any_of(all.begin(), all.end(), [&](const Firmware &one) { return is_served(one, tree); });
    for (const Firmware &firmware : all)
        if (!is_served(firmware, tree))
            found.push_back(
                {.severity = any ? Severity::warning : Severity::error,
                 .stage = Stage::boot_program,
                 .where = tree + "/" + firmware.platform,
                 .what = base::tr("the boot loader for PCs with {1} is missing", firmware.name),
                 .why = base::tr("PCs with {1} load nothing", firmware.name),
                 .repair = std::string("apt-get install grub-common ") + firmware.package + " && " + setup});
    return found;
}

// One word for the shell, as printf takes it.
std::string as_format(const std::string &text) {
    std::string word;
    for (const char c : text)
        word += c == '\n'   ? "\\n"
                : c == '%'  ? "%%"
                : c == '\'' ? "'\\''"
                : c == '\\' ? "\\\\"
                            : std::string(1, c);
    return "'" + word + "'";
}

// A PC, and what its menu says.
struct MenuOfClient {
    const CheckedClient &client;
    std::string path;
    PcMenu menu;
};

// Those of each system.
std::map<std::string, std::vector<MenuOfClient>> menus_of_systems(const Snapshot &server) {
    std::map<std::string, std::vector<MenuOfClient>> systems;
    for (const CheckedClient &client : server.clients) {
        if (client.kind != ClientKind::pc || client.digits.empty())
            continue;
        const std::string path = server.boot_area.path + "/grub/grub.cfg-" + client.digits;
        const PcMenu menu = read_pc_menu(base::read_file(path).text);
        if (!menu.system.empty())
            systems[menu.system].push_back({client, path, menu});
    }
    return systems;
}

// Makes the initramfs anew, by the tools of a root that belongs to it.
std::string made_for_network(const std::string &root, const std::string &initramfs) {
    return "printf 'BOOT=nfs\\nMODULES=most\\n' >" + root + "/etc/initramfs-tools/conf.d/hostadm && chroot " +
           root + " update-initramfs -u && install -m 644 $(ls -t " + root +
           "/boot/initrd.img-* | head -n 1) " + initramfs;
}

// Whether the PCs of each system find their roots with the initramfs that they load.
Findings initramfs_findings(const Snapshot &server) {
    Findings found;
    for (const auto &[system, menus] : menus_of_systems(server)) {
        const std::string path = server.boot_area.path + "/linux/" + system + "/initrd.img";
        const base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        if (!file.is_open() || !is_whole_file(path))
            continue; // told of the client
        const InitramfsRoots roots = roots_of_initramfs(file);
        if (roots.known && !roots.nfs3 && !roots.nfs4) {
            const std::string &root = menus.front().client.root;
            found.push_back({.stage = Stage::boot_program,
                             .where = path,
                             .what = base::tr("the initramfs has no NFS"),
                             .why = base::tr("the PCs that load it do not find their roots"),
                             .repair = made_for_network(root.empty() ? "ROOT" : root, path)});
            continue;
        }
        for (const MenuOfClient &one : menus)
            if (roots.known && one.menu.nfs4 && !roots.nfs4)
                found.push_back(
                    {.stage = Stage::boot_program,
                     .client = one.client.name,
                     .where = one.path,
                     .what = base::tr("the menu asks for version 4 of NFS, which {1} cannot mount a "
                                      "root by",
                                      path),
                     .why = base::tr("{1} does not find its root", one.client.name),
                     .repair = "sed -i 's/,nfsvers=4//' " + one.path});
    }
    return found;
}

// The systems that are laid out for PCs.
std::vector<std::string> systems_in(const std::string &folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        names.push_back(entry->path().filename());
    return names;
}

class MenuCheck {
public:
    MenuCheck(const Snapshot &server, const CheckedClient &client)
        : server_(server), client_(client), path_(server.boot_area.path + "/grub/grub.cfg-" + client.digits),
          text_(base::read_file(path_)), menu_(read_pc_menu(text_.text)) {}

    Findings all() {
        if (text_.is_missing())
            add(path_, base::tr("the menu is missing"), rewritten());
        else if (!text_)
            add(path_, base::tr("the menu cannot be read"), "chmod 644 " + path_);
        else if (menu_.system.empty() || menu_.root.empty())
            add(path_,
                base::tr("the menu is of another hand: it boots no system of this server with a root by NFS"),
                rewritten());
        else {
            check_words();
            check_kernel();
        }
        return std::move(found_);
    }

private:
    void add(const std::string &where, const std::string &what, const std::string &repair,
             Severity severity = Severity::error) {
        found_.push_back(
            {.severity = severity,
             .stage = Stage::boot_program,
             .client = client_.name,
             .where = where,
             .what = what,
             .why = severity == Severity::error
                        ? base::tr("{1} does not boot what is meant for it", client_.name)
                        : base::tr("{1} boots another kernel than its root's newest", client_.name),
             .repair = repair});
    }

    // The command that writes the menu as it is to be.
    std::string rewritten() const {
        PcMenu menu = menu_;
        const Interface *interface = server_.network.in_network_of(client_.number);
        menu.hostname = client_.name;
        menu.address = client_.address;
        menu.root = client_.root.empty() ? "ROOT" : client_.root;
        if (interface != nullptr)
            for (const Subnet &net : interface->addresses)
                if (net.holds(client_.number)) {
                    menu.netmask = ipv4_text(net.mask);
                    menu.server_address = ipv4_text(net.address);
                    menu.router = pc_router(interface->name);
                }
        if (menu.system.empty()) {
            const auto systems = systems_in(server_.boot_area.path + "/linux");
            menu.system = systems.size() == 1 ? systems.front() : "SYSTEM";
        }
        return "mkdir -p " + parent_of(path_) + " && printf " + as_format(pc_menu_text(menu)) + " >" + path_;
    }

    void check_words() {
        if (!client_.root.empty() && menu_.root != client_.root)
            add(path_, base::tr("the menu names the root {1}, and bootparams {2}", menu_.root, client_.root),
                rewritten());
        else if (!server_.network.is_own(ntohl(inet_addr(menu_.server_address.c_str()))))
            add(path_,
                base::tr("the menu names the server {1}, which is no address of this one",
                         menu_.server_address),
                rewritten());
        else if (menu_.address != client_.address)
            add(path_, base::tr("the menu tells it the address {1}, not {2}", menu_.address, client_.address),
                rewritten());
    }

    std::string system_file(const char *name) const {
        return server_.boot_area.path + "/linux/" + menu_.system + "/" + name;
    }

    void check_kernel() {
        const std::string kernel = system_file("vmlinuz"), initramfs = system_file("initrd.img");
        PcKernel newest;
        std::string release;
        try {
            if (!client_.root.empty()) {
                const base::Beneath root(client_.root, base::Links::inside);
                newest = newest_kernel_in(root);
                if (!newest.kernel.empty())
                    release = kernel_release(root.open_file(newest.kernel));
            }
        } catch (const base::BeneathError &) {
            newest = {}; // that its root cannot be read is told of the root
        }
        const auto copied = [&](const std::string &from, const std::string &usual, const std::string &to) {
            return "install -D -m 644 " + (from.empty() ? usual : client_.root + "/" + from) + " " + to;
        };
        const std::string again = copied(newest.kernel, "KERNEL", kernel) + " && " +
                                  copied(newest.initramfs, "INITRAMFS", initramfs);
        if (!is_whole_file(kernel))
            add(kernel, base::tr("the kernel is missing or empty"), again);
        else if (!is_whole_file(initramfs))
            add(initramfs, base::tr("the initramfs is missing or empty"), again);
        else if (const std::string there = kernel_release(kernel);
                 !release.empty() && !there.empty() && there != release)
            add(kernel, base::tr("the kernel is {1}, and the newest of its root {2}", there, release), again,
                Severity::warning);
    }

    const Snapshot &server_;
    const CheckedClient &client_;
    const std::string path_;
    const base::FileText text_;
    const PcMenu menu_;
    Findings found_;
};

} // namespace

Findings pc_of_server(const Snapshot &server) {
    if (std::none_of(server.clients.begin(), server.clients.end(),
                     [](const auto &one) { return one.kind == ClientKind::pc; }))
        return {};
    Findings found = dhcp_findings(server);
    for (Findings &more : std::array{tree_findings(server), initramfs_findings(server)})
        std::move(more.begin(), more.end(), std::back_inserter(found));
    return found;
}

Findings pc_of_client(const Snapshot &server, const CheckedClient &client) {
    if (client.kind != ClientKind::pc || client.digits.empty())
        return {};
    return MenuCheck(server, client).all();
}

} // namespace hostadm::server
