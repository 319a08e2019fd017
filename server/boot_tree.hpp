// SPDX-License-Identifier: MIT
// The network tree of GRUB below /tftpboot/grub, by which PCs boot: for each firmware its core and its modules.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "server/boot_area.hpp"
#include "server/journal.hpp"
#include "server/pc_area.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// A kind of firmware that GRUB serves.
struct Firmware {
    const char *name;     // as people call it
    const char *platform; // as GRUB does
    const char *core;     // what the firmware loads
    const char *package;  // that brings it
};
const std::vector<Firmware> &all_firmware();

// Of which there are GRUB's files on this server, of which a tree is in place, and of which that is older than the
// files.
bool is_installed(const Firmware &firmware);
bool is_served(const Firmware &firmware, const std::string &tree = pc_boot_tree);
bool is_outdated(const Firmware &firmware);

// The tree is being made aside, and then put in place.
struct MadeBootTree {
    static constexpr std::string_view kind = "made GRUB tree";
    std::uint64_t fresh = 0; // there was none before
    static auto fields(auto &self) { return std::tie(self.fresh); }
};
std::string take_back(const MadeBootTree &made, const UndoContext &context);

// Makes the tree of every firmware that GRUB is installed for. False: it was so already. Throws Failure.
bool ensure_boot_tree(const BootAreaLock &, Journal &journal);
// Removes it. Menus, and what else is not GRUB's, stay. False: there was none.
bool remove_boot_tree(const BootAreaLock &);

} // namespace hostadm::server
