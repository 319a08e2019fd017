// SPDX-License-Identifier: MIT
// The subjects that are looked at, one file each. The list in registry.cpp tells what each looks at.
#pragma once

#include <cstdint>
#include <string>

#include "server/checks/finding.hpp"
#include "server/checks/snapshot.hpp"

namespace hostadm::server {

Findings hosts_table_of_server(const Snapshot &server);
Findings hosts_table_of_client(const Snapshot &server, const CheckedClient &client);
Findings ethers_table_of_server(const Snapshot &server);
Findings ethers_table_of_client(const Snapshot &server, const CheckedClient &client);
Findings bootparams_of_server(const Snapshot &server);
Findings bootparams_of_client(const Snapshot &server, const CheckedClient &client);
Findings name_service_of_server(const Snapshot &server);
Findings boot_area_of_server(const Snapshot &server);
Findings boot_area_of_client(const Snapshot &server, const CheckedClient &client);
Findings reverse_arp_of_server(const Snapshot &server);
Findings reverse_arp_of_client(const Snapshot &server, const CheckedClient &client);
Findings tftp_of_server(const Snapshot &server);
Findings rpl_of_server(const Snapshot &server);
Findings rpl_of_client(const Snapshot &server, const CheckedClient &client);
Findings pc_of_server(const Snapshot &server);
Findings pc_of_client(const Snapshot &server, const CheckedClient &client);
Findings port_mapper_of_server(const Snapshot &server);
Findings boot_parameter_daemon_of_server(const Snapshot &server);
Findings boot_parameter_daemon_of_client(const Snapshot &server, const CheckedClient &client);
Findings nfs_server_of_server(const Snapshot &server);
Findings access_control_of_client(const Snapshot &server, const CheckedClient &client);
// Whether a daemon surely turns away who asks from an address of this server itself.
bool is_denied(const Snapshot &server, const std::string &daemon, std::uint32_t address);
// Whether the packet filter surely drops what this server asks itself.
bool is_filtered_here(const Snapshot &server, const std::string &protocol, std::uint16_t port,
                      std::uint32_t address);
Findings interfaces_of_server(const Snapshot &server);
Findings interfaces_of_client(const Snapshot &server, const CheckedClient &client);
Findings packet_filter_of_client(const Snapshot &server, const CheckedClient &client);
Findings shares_of_server(const Snapshot &server);
Findings shares_of_client(const Snapshot &server, const CheckedClient &client);
Findings exports_of_client(const Snapshot &server, const CheckedClient &client);
Findings roots_of_client(const Snapshot &server, const CheckedClient &client);
Findings swap_files_of_client(const Snapshot &server, const CheckedClient &client);
Findings disk_space_of_server(const Snapshot &server);
Findings reboot_of_server(const Snapshot &server);
Findings broken_runs_of_server(const Snapshot &server);

} // namespace hostadm::server
