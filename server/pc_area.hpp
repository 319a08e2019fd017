// SPDX-License-Identifier: MIT
// What makes today's PCs boot: a boot loader's network tree and a settings file for the DHCP server, once for the
// server; kernel and initramfs, once for an operating system; a boot menu, once for each client.
//
//     /tftpboot/grub/i386-pc/core.0, x86_64-efi/core.efi     what a PC's firmware loads (BIOS, UEFI)
//     /tftpboot/grub/grub.cfg-C0A8010A                       the menu of the client 192.168.1.10, one entry, no waiting
//     /tftpboot/linux/OS_NAME_OS_VERSION/vmlinuz, initrd.img
//     /etc/dnsmasq.d/hostadm.conf                            answers those only whom /etc/ethers and /etc/hosts know
//
// dnsmasq reads the two tables when it starts and when it gets HUP.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hostadm::server {

inline constexpr const char *pc_boot_tree = "/tftpboot/grub";
inline constexpr const char *pc_systems = "/tftpboot/linux";
inline constexpr const char *dhcp_settings_path = "/etc/dnsmasq.d/hostadm.conf";

// A network whose PCs are answered.
struct PcNetwork {
    std::string interface; // of this server
    std::string address;   // of that interface
    std::string netmask;
    std::string network;     // the network's own address
    std::string router = {}; // in it, that its clients are told; empty: none
};

// The networks of the interfaces named, or of all that are up when none is. Throws Failure for one that does not exist
// or has no IPv4 address, when there is none at all, and for a router that lies in none of them.
std::vector<PcNetwork> pc_networks(const std::vector<std::string> &interfaces, const std::string &router);

// What the administrator has told the DHCP server beside this file.
struct OtherDhcpSettings {
    bool any = false;             // none: it is there for PCs alone, and serves no names
    bool name_interfaces = false; // so that those that are not named are not served
};
// The settings file for these networks.
std::string dhcp_settings(const std::vector<PcNetwork> &networks, const OtherDhcpSettings &others = {});
bool is_own_dhcp_settings(std::string_view text);

// What a PC's menu says.
struct PcMenu {
    std::string hostname, address, netmask, router;
    std::string server_address, root;
    std::string system;      // folder in /tftpboot/linux
    bool nfs4 = false;       // version 4 of NFS instead of 3
    std::string extra_words; // for the kernel
};
std::string pc_menu_text(const PcMenu &menu);
std::string pc_menu_path(const std::string &address);
std::vector<std::string> pc_menus(); // names of all that there are, in order
// The same from a text that pc_menu_text made; of another text what can be found of it.
PcMenu read_pc_menu(std::string_view text);

// Where a system's kernel and initramfs lie for TFTP.
std::string pc_system_name(const std::string &os_name, const std::string &os_version);

// A kernel, and the initramfs that belongs to it; empty where there is none.
struct PcKernel {
    std::string kernel, initramfs;
};

} // namespace hostadm::server
