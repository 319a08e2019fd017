// SPDX-License-Identifier: MIT
#include "server/pc_area.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <filesystem>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <system_error>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/boot_area.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view settings_title =
    "# Written by hostadm (netboot/setup_pc): PCs that boot from this server. Changes are lost.";

std::string in_dots(in_addr address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

PcNetwork network_of(const ifaddrs &interface) {
    const in_addr own = reinterpret_cast<const sockaddr_in *>(interface.ifa_addr)->sin_addr;
    const in_addr mask = reinterpret_cast<const sockaddr_in *>(interface.ifa_netmask)->sin_addr;
    return {interface.ifa_name, in_dots(own), in_dots(mask), in_dots({own.s_addr & mask.s_addr})};
}

// Those that carry IPv4 to others: of an interface with several addresses the first counts.
std::vector<PcNetwork> networks_of_this_host() {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        fail_errno(base::tr("the network interfaces cannot be read"));
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    std::vector<PcNetwork> networks;
    for (const ifaddrs *one = list; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET || one->ifa_netmask == nullptr ||
            (one->ifa_flags & IFF_LOOPBACK) != 0 || (one->ifa_flags & IFF_UP) == 0)
            continue;
        const PcNetwork network = network_of(*one);
        if (std::none_of(networks.begin(), networks.end(),
                         [&](const PcNetwork &other) { return other.interface == network.interface; }))
            networks.push_back(network);
    }
    return networks;
}

// The value of KEY=VALUE among the words of a kernel's command line.
std::string value_of(const std::vector<std::string_view> &words, std::string_view key) {
    for (const std::string_view word : words)
        if (word.size() > key.size() && word.starts_with(key) && word[key.size()] == '=')
            return std::string(word.substr(key.size() + 1));
    return {};
}

bool lies_in(const std::string &address, const PcNetwork &network) {
    const in_addr_t mask = inet_addr(network.netmask.c_str());
    return (inet_addr(address.c_str()) & mask) == inet_addr(network.network.c_str());
}

} // namespace

std::vector<PcNetwork> pc_networks(const std::vector<std::string> &interfaces, const std::string &router) {
    std::vector<PcNetwork> all = networks_of_this_host(), chosen;
    for (const std::string &name : interfaces) {
        const auto found = std::find_if(all.begin(), all.end(),
                                        [&](const PcNetwork &network) { return network.interface == name; });
        if (found == all.end())
            fail(Code::not_found,
                 base::tr(
                     "the interface {1} is not there, is down, or has no IPv4 address; see `ip -4 address`",
                     name));
        chosen.push_back(*found);
    }
    if (interfaces.empty())
        chosen = std::move(all);
    if (chosen.empty())
        fail(Code::not_found,
             base::tr("no interface of this server has an IPv4 address, so no PC can be answered"));
    if (router.empty())
        return chosen;
    const auto its_network = std::find_if(chosen.begin(), chosen.end(),
                                          [&](const PcNetwork &network) { return lies_in(router, network); });
    if (its_network == chosen.end())
        fail(Code::unusable, base::tr("the router {1} lies in none of the networks whose PCs are answered, "
                                      "so that none could reach it",
                                      router));
    its_network->router = router;
    return chosen;
}

std::string dhcp_settings(const std::vector<PcNetwork> &networks, const OtherDhcpSettings &others) {
    std::string text = std::string(settings_title) + "\n";
    if (!others.any)
        text += "# Not 0: then the names in /etc/ethers would not be looked up.\n"
                "port=53053\n"
                "bind-dynamic\n";
    text += "read-ethers\n"
            "dhcp-match=set:efi64,option:client-arch,7\n"
            "dhcp-match=set:efi64,option:client-arch,9\n"
            "dhcp-boot=tag:!efi64,grub/i386-pc/core.0\n"
            "dhcp-boot=tag:efi64,grub/x86_64-efi/core.efi\n"
            "# No router, but where one is named.\n"
            "dhcp-option=option:router\n";
    for (const PcNetwork &network : networks) {
        if (!others.any || others.name_interfaces)
            text += "interface=" + network.interface + "\n";
        text += "# \"static\": known clients only.\ndhcp-range=" + network.network + ",static," +
                network.netmask + "\n";
        if (!network.router.empty())
            text += "dhcp-option=tag:" + network.interface + ",option:router," + network.router + "\n";
    }
    return text;
}

bool is_own_dhcp_settings(std::string_view text) {
    return text.starts_with(settings_title);
}

std::string pc_menu_path(const std::string &address) {
    return std::string(pc_boot_tree) + "/grub.cfg-" + address_digits(address);
}

std::vector<std::string> pc_menus() {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(pc_boot_tree, error), end; !error && entry != end;
         entry.increment(error))
        if (std::string name = entry->path().filename(); name.starts_with("grub.cfg-"))
            names.push_back(std::move(name));
    std::sort(names.begin(), names.end());
    return names;
}

std::string pc_menu_text(const PcMenu &menu) {
    // Version 3 is what an initramfs takes by itself; the small mount program in Debian's knows no other.
    const std::string version = menu.nfs4 ? ",nfsvers=4" : "";
    std::string words = "boot=nfs nfsroot=" + menu.server_address + ":" + menu.root + version +
                        " ip=" + menu.address + ":" + menu.server_address + ":" + menu.router + ":" +
                        menu.netmask + ":" + menu.hostname + "::off rw";
    if (!menu.extra_words.empty())
        words += " " + menu.extra_words;
    return "# " + menu.hostname + ", written by hostadm\nset timeout=0\nlinux (tftp)/linux/" + menu.system +
           "/vmlinuz " + words + "\ninitrd (tftp)/linux/" + menu.system + "/initrd.img\nboot\n";
}

PcMenu read_pc_menu(std::string_view text) {
    PcMenu menu;
    base::for_each_line(text, [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() < 2 || words[0] != "linux")
            return;
        constexpr std::string_view folder = "(tftp)/linux/";
        if (words[1].starts_with(folder)) {
            const std::string_view system = words[1].substr(folder.size());
            menu.system = system.substr(0, system.rfind('/'));
        }
        const std::string nfsroot = value_of(words, "nfsroot");
        const std::size_t colon = nfsroot.find(':'), comma = nfsroot.find(',');
        menu.server_address = nfsroot.substr(0, colon);
        menu.root = colon == nfsroot.npos ? "" : nfsroot.substr(colon + 1, comma - colon - 1);
        menu.nfs4 = nfsroot.find(",nfsvers=4") != nfsroot.npos;
        const std::string addresses = value_of(words, "ip");
        const auto ip = base::split(addresses, ':');
        if (ip.size() >= 5) {
            menu.address = ip[0];
            menu.router = ip[2];
            menu.netmask = ip[3];
            menu.hostname = ip[4];
        }
        const auto rw = std::find(words.begin(), words.end(), "rw");
        for (auto word = rw; word != words.end(); ++word)
            if (word != rw)
                menu.extra_words.append(menu.extra_words.empty() ? "" : " ").append(*word);
    });
    return menu;
}

std::string pc_system_name(const std::string &os_name, const std::string &os_version) {
    return os_name + "_" + os_version;
}

} // namespace hostadm::server
