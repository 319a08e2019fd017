// SPDX-License-Identifier: MIT
// Whether the packet filter lets pass what a boot needs.
#include <set>

#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr std::uint32_t bootparam_program = 100026, nfs_program = 100003, mount_program = 100005;
constexpr std::uint16_t tftp_port = 69;

struct Question {
    Packet packet;
    Stage stage;
    std::string what, why;
};

// What a client sends, in the order of its boot, and what it is answered.
std::vector<Question> questions(const Snapshot &server, const CheckedClient &client,
                                const Interface &interface) {
    std::uint32_t own = 0, everyone = 0;
    for (const Subnet &net : interface.addresses)
        if (net.holds(client.number)) {
            own = net.address;
            everyone = net.last();
        }
    std::vector<Question> all;
    const auto ask = [&](const std::string &protocol, std::uint16_t port, Stage stage,
                         const std::string &what, bool broadcast = false) {
        Packet packet{
            Packet::Direction::in, protocol, interface.name, client.number, broadcast ? everyone : own,
            a_clients_port,        port,     false,          broadcast};
        all.push_back({packet, stage, what, ""});
        const Packet answer{Packet::Direction::out, protocol, interface.name, own, client.number, port,
                            a_clients_port,         true,     false};
        // TFTP answers from a port of its own.
        if (port != tftp_port)
            all.push_back({answer, stage, base::tr("the answer to {1}", what), ""});
    };
    if (client.kind == ClientKind::pc)
        ask("udp", 67, Stage::address, base::tr("the question for its address (DHCP, port 67)"), true);
    const Packet reverse{Packet::Direction::in, "rarp", interface.name, 0, 0, 0, 0, false, true};
    if (client.kind != ClientKind::pc)
        all.push_back({reverse, Stage::address, base::tr("reverse ARP"), ""});
    const Packet arp{Packet::Direction::in, "arp", interface.name, client.number, own, 0, 0, false, true};
    all.push_back({arp, Stage::boot_program, "ARP", ""});
    const Packet arp_answer{
        Packet::Direction::out, "arp", interface.name, own, client.number, 0, 0, false, false};
    all.push_back({arp_answer, Stage::boot_program, "ARP", ""});
    ask("udp", tftp_port, Stage::boot_program, base::tr("the question for its boot program (TFTP, port 69)"));
    // The file itself comes from, and is acknowledged to, ports that nobody knows before.
    constexpr std::uint16_t any_port = 40000;
    all.push_back({{Packet::Direction::out, "udp", interface.name, own, client.number, any_port,
                    a_clients_port, false, false},
                   Stage::boot_program,
                   base::tr("the boot program itself (TFTP)"),
                   ""});
    all.push_back({{Packet::Direction::in, "udp", interface.name, client.number, own, a_clients_port,
                    any_port, true, false},
                   Stage::boot_program,
                   base::tr("what acknowledges the boot program (TFTP)"),
                   ""});
    if (client.kind != ClientKind::pc)
        ask("udp", 111, Stage::name, base::tr("the broadcast for its name (rpcbind, port 111)"), true);
    if (const auto port = server.rpc.port_of(bootparam_program, 1, false);
        port && client.kind != ClientKind::pc)
        ask("udp", *port, Stage::parameters,
            base::tr("the question for its root (rpc.bootparamd, port {1})", *port));
    ask("tcp", 111, Stage::root, base::tr("the question where the NFS server is (rpcbind, port 111)"));
    if (const auto port = server.rpc.port_of(mount_program, 3, true))
        ask("tcp", *port, Stage::root, base::tr("the mount of its root (port {1})", *port));
    if (const auto port = server.rpc.port_of(nfs_program, 3, true))
        ask("tcp", *port, Stage::root, base::tr("NFS (port {1})", *port));
    return all;
}

} // namespace

bool is_filtered_here(const Snapshot &server, const std::string &protocol, std::uint16_t port,
                      std::uint32_t address) {
    constexpr std::uint16_t any_port = 40000;
    const Packet question{
        Packet::Direction::in, protocol, "lo", address, address, any_port, port, false, false};
    Packet leaves = question;
    leaves.direction = Packet::Direction::out;
    return server.filter.drops(question) || server.filter.drops(leaves);
}

Findings packet_filter_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    const Interface *interface = server.network.in_network_of(client.number);
    if (interface == nullptr || (server.filter.empty() && server.filter_at_boot.empty()))
        return found;
    // One rule may stop several steps: the first tells of it.
    std::set<std::string> told;
    bool told_of_boot = false;
    for (const Question &question : questions(server, client, *interface)) {
        const auto dropped = server.filter.drops(question.packet);
        if (dropped && told.insert(dropped->repair).second)
            found.push_back(
                {.stage = question.stage,
                 .client = client.name,
                 .where = dropped->where,
                 .what = base::tr("the packet filter drops {1}: {2}", question.what, dropped->what),
                 .why = base::tr("{1} gets no answer at this step", client.name),
                 .repair = dropped->repair});
        const auto later = server.filter_at_boot.drops(question.packet);
        if (dropped || !later || told_of_boot)
            continue;
        told_of_boot = true;
        found.push_back({.severity = Severity::warning,
                         .stage = Stage::reboot,
                         .client = client.name,
                         .where = "/etc/nftables.conf",
                         .what = base::tr("{1}, as it is loaded at boot, drops {2}, which passes now",
                                          later->where, question.what),
                         .why = base::tr("{1} gets no answer after this server has booted", client.name),
                         .repair = "{ echo '#!/usr/sbin/nft -f'; echo 'flush ruleset'; nft list "
                                   "ruleset; } >/etc/nftables.conf"});
    }
    return found;
}

} // namespace hostadm::server
