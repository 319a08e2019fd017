// SPDX-License-Identifier: MIT
// The stages of a boot, in their order.
#pragma once

#include <span>

#include "rehearsal/walk.hpp"

namespace hostadm::rehearsal {

struct StageEnd {
    StageResult::Outcome outcome;
    std::string detail;
};

struct BootStage {
    const char *name;
    server::Stage stage;
    StageEnd (*walk)(Journey &);
};

std::span<const BootStage> boot_stages(server::ClientKind kind);

// The stages of the network before there is a file system, and those over NFS.
StageEnd learn_address(Journey &journey);
StageEnd load_boot_program(Journey &journey);
StageEnd learn_name(Journey &journey);
StageEnd learn_parameters(Journey &journey);
// The same of a PC.
StageEnd learn_address_by_dhcp(Journey &journey);
StageEnd load_boot_loaders(Journey &journey);
StageEnd load_menu(Journey &journey);
StageEnd load_kernel(Journey &journey);
StageEnd mount_root(Journey &journey);
StageEnd read_what_starts(Journey &journey);
StageEnd write_to_root(Journey &journey);
StageEnd use_swap(Journey &journey);

// Where a daemon's settings are to be looked at: the daemon as it runs, or what starts it.
std::string where_of(const Started &daemon);
// What became of the daemon, as the reason of its silence.
std::string why_silent(const Started &daemon);
// The end of a client of which nobody knows the Ethernet address.
StageEnd end_without_ethernet(Journey &journey, const Started &daemon);
// The client takes the address that it has learned, with the network that it is in.
void take_learned_address(const Journey &journey);
// What keeps a client from a daemon that answers this server itself: its route, the packet filter, or neither.
std::string what_lies_between(const Journey &journey);

inline StageEnd passed(std::string detail) {
    return {StageResult::Outcome::passed, std::move(detail)};
}
inline StageEnd failed(std::string detail) {
    return {StageResult::Outcome::failed, std::move(detail)};
}
inline StageEnd skipped(std::string detail) {
    return {StageResult::Outcome::skipped, std::move(detail)};
}

} // namespace hostadm::rehearsal
