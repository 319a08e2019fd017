// SPDX-License-Identifier: MIT
#include "server/checks/snapshot.hpp"

#include "base/text.hpp"
#include "server/boot_area.hpp"
#include "server/bootparams.hpp"
#include "server/host_tables.hpp"

namespace hostadm::server {

Snapshot read_snapshot() {
    Snapshot server;
    const auto addresses = hosts_table().keys_by_name();
    const auto ethernets = ethers_table().keys_by_name();
    const auto value = [](const auto &table, const std::string &name) {
        const auto found = table.find(base::lower_case(name));
        return found == table.end() ? std::string() : found->second;
    };
    for (const BootparamsClient &entry : client_entries()) {
        server.clients.push_back({.name = entry.name,
                                  .address = value(addresses, entry.name),
                                  .ethernet = value(ethernets, entry.name),
                                  .items = entry.items});
    }
    return server;
}

} // namespace hostadm::server
