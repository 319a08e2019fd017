// SPDX-License-Identifier: MIT
#include "server/checks/registry.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

// How many letters must be put in, left out or changed to make one of the other.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

bool is_asked(const std::vector<std::string> &names, const std::string &client) {
    return names.empty() || std::any_of(names.begin(), names.end(), [&](const std::string &name) {
               return base::lower_case(name) == base::lower_case(client);
           });
}

} // namespace

const std::vector<Check> &all_checks() {
    static const std::vector<Check> checks = {
        {"hosts-table",
         base::tr("/etc/hosts: lines that are passed over, clients without an address or with two, addresses "
                  "of two"),
         hosts_table_of_server, hosts_table_of_client},
        {"ethers-table",
         base::tr(
             "/etc/ethers: lines that are passed over, clients without a line, Ethernet addresses of two"),
         ethers_table_of_server, ethers_table_of_client},
        {"name-service",
         base::tr("/etc/nsswitch.conf: whether the tables of this server are looked into, and first"),
         name_service_of_server, nullptr},
        {"interfaces",
         base::tr("interfaces and routes: up, in the clients' networks, ways back to the clients"),
         interfaces_of_server, interfaces_of_client},
        {"reverse-arp",
         base::tr("in.rarpd: running, on which interface, with which boot programs it is content"),
         reverse_arp_of_server, reverse_arp_of_client},
        {"boot-area",
         base::tr("/tftpboot: links and boot programs that are missing, dangling, stale, empty, unreadable"),
         boot_area_of_server, boot_area_of_client},
        {"tftp",
         base::tr(
             "the TFTP daemon: running, its options, its directory, whether it hands out a boot program"),
         tftp_of_server, nullptr},
        {"rpl", base::tr("rpld and /rplboot: running, links and programs of the clients that boot by RPL"),
         rpl_of_server, rpl_of_client},
        {"pc", base::tr("PCs: the DHCP server and what it has read, the boot loader, menus, kernels"),
         pc_of_server, pc_of_client},
        {"port-mapper",
         base::tr("rpcbind: running, whether it hears and hands on broadcasts, whether it answers"),
         port_mapper_of_server, nullptr},
        {"boot-parameter-daemon",
         base::tr("rpc.bootparamd: running, registered, answering, its table and its router"),
         boot_parameter_daemon_of_server, boot_parameter_daemon_of_client},
        {"bootparams",
         base::tr(
             "/etc/bootparams: entries that the daemon reads otherwise, servers without a usable address"),
         bootparams_of_server, bootparams_of_client},
        {"access-control", base::tr("/etc/hosts.allow and /etc/hosts.deny: clients that are turned away"),
         nullptr, access_control_of_client},
        {"packet-filter", base::tr("nftables: rules that drop what a boot needs"), nullptr,
         packet_filter_of_client},
        {"nfs-server",
         base::tr("the NFS server and its mount daemon: running, registered, answering, its settings"),
         nfs_server_of_server, nullptr},
        {"shares",
         base::tr("shares now and at boot: roots and swap files that are not shared to their client for "
                  "writing as root"),
         shares_of_server, shares_of_client},
        {"exports", base::tr("what the NFS server exports, against what is shared"), nullptr,
         exports_of_client},
        {"roots",
         base::tr("clients' roots: there, readable, a first process, a console, a mount table that names "
                  "this server"),
         nullptr, roots_of_client},
        {"swap-files", base::tr("swap and dump files: there, size, owner, mode"), nullptr,
         swap_files_of_client},
        {"disk-space", base::tr("file systems that clients write to: room, inodes, read-only"),
         disk_space_of_server, nullptr},
        {"reboot", base::tr("what this server would lose by booting: services, options, mounts"),
         reboot_of_server, nullptr},
        {"broken-runs", base::tr("work on clients that was cut off in the middle"), broken_runs_of_server,
         nullptr},
    };
    return checks;
}

Findings check(const Snapshot &server, const std::vector<std::string> &clients) {
    Findings all;
    const auto add = [&](const Check &by, Findings found) {
        for (Finding &finding : found) {
            if (!finding.client.empty() && !is_asked(clients, finding.client))
                continue;
            finding.check = by.name;
            all.push_back(std::move(finding));
        }
    };
    for (const Check &one : all_checks()) {
        if (one.of_server != nullptr)
            add(one, one.of_server(server));
        if (one.of_client != nullptr)
            for (const CheckedClient &client : server.clients)
                if (is_asked(clients, client.name))
                    add(one, one.of_client(server, client));
    }
    std::stable_sort(all.begin(), all.end(), [](const Finding &one, const Finding &other) {
        return std::pair(one.severity, one.stage) < std::pair(other.severity, other.stage);
    });
    return all;
}

std::string not_seen(const Snapshot &server) {
    std::string text;
    const auto add = [&](const std::string &what) { text += (text.empty() ? "" : "; ") + what; };
    if (!server.privileged)
        add(base::tr("the sockets of daemons, the packet filter's rules and what only root may read: run "
                     "this as root"));
    else if (!server.filter.unread.empty())
        add(base::tr("the packet filter's rules: {1}", server.filter.unread));
    for (const TableText *file : {&server.hosts.file, &server.ethers.file, &server.bootparams.file})
        if (file->error != 0 && file->error != ENOENT)
            add(file->path + ": " + std::strerror(file->error));
    return text;
}

std::vector<std::string> nearest_clients(const Snapshot &server, const std::string &name) {
    std::vector<std::pair<std::size_t, std::string>> near;
    const std::string wanted = base::lower_case(name);
    for (const CheckedClient &client : server.clients)
        if (const std::size_t away = distance(wanted, base::lower_case(client.name));
            away <= wanted.size() / 2 + 1)
            near.emplace_back(away, client.name);
    std::sort(near.begin(), near.end());
    near.resize(std::min<std::size_t>(near.size(), 3));
    std::vector<std::string> names;
    for (auto &[away, client] : near)
        names.push_back(std::move(client));
    return names;
}

} // namespace hostadm::server
