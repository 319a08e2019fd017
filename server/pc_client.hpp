// SPDX-License-Identifier: MIT
// What a PC has of its own in the boot area, its menu, and the kernel and the initramfs that it shares with all of its
// operating system.
#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "base/beneath.hpp"
#include "server/boot_area.hpp"
#include "server/files.hpp"
#include "server/journal.hpp"
#include "server/pc_area.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// The menu of the client of an address, told like a link to the kernel that it names; none: there is no menu.
BootLinks pc_links_of(const std::string &address);
// "yes", "no", or what is wrong with it.
std::string pc_links_state(const BootLinks &links);
// What the menu of a client says; nothing: it has none.
std::optional<PcMenu> pc_menu_of(const std::string &address);

// The network of this server that an address lies in. Throws Failure.
PcNetwork pc_network_of(const std::string &address);
// The router that PCs of an interface are told of, by the settings of the DHCP server; empty: none.
std::string pc_router(const std::string &interface);
// The address of this server that a client in a network is told: that of the name, if it is one of this server's, or else
// the one in that network.
std::string pc_server_address(const std::string &server, const PcNetwork &network);

// The kernel of a root file system, which belongs to a client, and its initramfs, by their names below it.
PcKernel newest_kernel_in(const base::Beneath &root);
// The same; throws Failure where one of them is missing.
PcKernel require_kernel(const base::Beneath &root);
// The initramfs that all PCs of a system boot; empty: it is not there, or not whole.
std::string pc_initramfs_in_place(const std::string &system);
// The release that a kernel's file names, such as 6.1.0-10-amd64; empty: it is no such file.
std::string kernel_release(const base::Descriptor &file);
std::string kernel_release(const std::string &path);

struct MadePcFile {
    static constexpr std::string_view kind = "made PC file";
    std::string path;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.path, self.identity.device, self.identity.inode, self.identity.born);
    }
};
// It stays if another client boots from it by now.
std::string take_back(const MadePcFile &made, const UndoContext &context);

// A menu that is about to be made, changed or removed.
struct ChangedPcMenu {
    static constexpr std::string_view kind = "changed PC menu";
    std::string path, before, after; // its texts; empty: none
    static auto fields(auto &self) { return std::tie(self.path, self.before, self.after); }
};
// What somebody has changed since stays.
std::string take_back(const ChangedPcMenu &changed, const UndoContext &context);

// Each returns false when it was so already, and throws Failure.
//
// Puts the kernel and the initramfs of a root in place for a system, each whole. Those that are there stay.
bool ensure_pc_system(const BootAreaLock &, const std::string &system, const base::Beneath &root,
                      Journal &journal);
bool ensure_pc_menu(const BootAreaLock &, const PcMenu &menu, Journal &journal);
bool remove_pc_menu(const BootAreaLock &, const std::string &address, Journal &journal);

} // namespace hostadm::server
