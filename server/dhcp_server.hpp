// SPDX-License-Identifier: MIT
// The DHCP server that answers PCs, dnsmasq: the settings that it is given, and the process that has read them.
//
// It reads its settings when it starts, and the tables of hosts and of Ethernet addresses then and when it gets HUP.
#pragma once

#include <optional>
#include <string>

#include "server/pc_area.hpp"
#include "server/report.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

inline constexpr const char *dhcp_program = "/usr/sbin/dnsmasq";
inline constexpr const char *dhcp_service = "/etc/init.d/dnsmasq";

// The process that reads our settings; others of this name may serve virtual machines. Nothing: none runs.
std::optional<int> running_dhcp_server(const std::string &proc = "/proc");
// Whether a process was started since the file got its present text.
bool has_read(int pid, const std::string &path);
// Whether it has read the tables as they are now, by its start or by having been told since.
bool knows_tables(int pid);

// What the administrator has told it, in its own file or in others beside ours.
OtherDhcpSettings other_dhcp_settings(const std::string &file = "/etc/dnsmasq.conf",
                                      const std::string &folder = "/etc/dnsmasq.d");
// What it says against the settings as they are now; empty: nothing.
std::string defect_of_dhcp_settings();

// Makes it read its settings: it is started or, where it runs, started anew. What was done, in words; throws Failure with what it
// said when it does not come up.
std::string restart_dhcp_server(bool runs);

// Tells a server that runs of the tables as they are now, unless it knows; one that does not run is told of.
void tell_dhcp_server(Report &report);

// The settings file is about to be changed or removed.
struct ChangedDhcpSettings {
    static constexpr std::string_view kind = "changed DHCP settings";
    std::string before; // their text; empty: there was no such file
    std::uint64_t ran = 0;
    static auto fields(auto &self) { return std::tie(self.before, self.ran); }
};
// A server that ran then gets its old settings back.
std::string take_back(const ChangedDhcpSettings &changed, const UndoContext &context);

} // namespace hostadm::server
