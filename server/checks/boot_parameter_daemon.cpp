// SPDX-License-Identifier: MIT
// rpc.bootparamd: it tells clients their names, their router, and where their roots are.
#include <algorithm>
#include <filesystem>
#include <system_error>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr std::uint32_t program = 100026, version = 1, loopback = 0x7f000001;
const char *nothing() {
    return base::tr("no client gets an answer when it asks for its name and its root");
}

// An address of this server in a client's network.
std::string router_for(const Snapshot &server) {
    for (const CheckedClient &client : server.clients)
        if (const Interface *interface = server.network.in_network_of(client.number))
            for (const Subnet &net : interface->addresses)
                if (net.holds(client.number))
                    return ipv4_text(net.address);
    return "ROUTER";
}

std::string start(const Snapshot &server) {
    return "rpc.bootparamd -r " + router_for(server);
}

Finding wrong(const Snapshot &server, const Daemon &daemon, const std::string &what,
              const std::string &why = nothing()) {
    return {.stage = Stage::name,
            .where = base::tr("rpc.bootparamd, process {1}", daemon.process.pid),
            .what = what,
            .why = why,
            .repair = "kill " + std::to_string(daemon.process.pid) + "; sleep 1; " + start(server)};
}

bool has_udp_port(const Daemon &daemon, std::uint16_t port) {
    return std::any_of(daemon.sockets.begin(), daemon.sockets.end(), [&](const Socket &socket) {
        return socket.kind == Socket::Kind::udp && socket.port == port;
    });
}

// The first is the one that clients are led to: of several the last started has taken over the registration.
std::vector<const Daemon *> daemons(const Snapshot &server) {
    auto running = server.daemons.named({"rpc.bootparamd", "bootparamd"});
    if (const auto port = server.rpc.port_of(program, version, false))
        std::stable_partition(running.begin(), running.end(),
                              [&](const Daemon *one) { return has_udp_port(*one, *port); });
    return running;
}

} // namespace

Findings boot_parameter_daemon_of_server(const Snapshot &server) {
    if (!server.has_clients_but_pcs())
        return {};
    const Wanted wanted{.found = daemons(server),
                        .name = "rpc.bootparamd",
                        .programs = {"/usr/sbin/rpc.bootparamd"},
                        .package = "bootparamd",
                        .stage = Stage::name,
                        .why = nothing(),
                        .start = start(server)};
    if (auto defect = defect_of_daemon(wanted))
        return {*defect};
    const Daemon &daemon = *wanted.found.front();
    Findings found;
    std::error_code error;
    if (const auto table = daemon.value_of('f');
        table && !std::filesystem::equivalent(*table, server.bootparams.file.path, error))
        found.push_back(wrong(server, daemon,
                              base::tr("it reads {1}, not {2}", *table, server.bootparams.file.path),
                              base::tr("what is written there reaches no client")));
    if (server.rpc.mapper != RpcAnswers::Mapper::answered)
        return found;
    const auto port = server.rpc.port_of(program, version, false);
    if (!port) {
        found.push_back(wrong(server, daemon,
                              base::tr("it is not registered with rpcbind, which was started anew since")));
    } else if (!daemon.sockets.empty() && !has_udp_port(daemon, *port)) {
        found.push_back(
            wrong(server, daemon, base::tr("rpcbind has it at port {1}, where it does not listen", *port)));
    } else if (const Answer answer = server.live.null_procedure(program, version, false, *port);
               answer != Answer::answered && !is_filtered_here(server, "udp", *port, loopback)) {
        found.push_back(wrong(server, daemon, base::tr("it does not answer")));
    }
    return found;
}

Findings boot_parameter_daemon_of_client(const Snapshot &server, const CheckedClient &client) {
    const auto running = daemons(server);
    const Interface *interface = server.network.in_network_of(client.number);
    if (client.kind == ClientKind::pc || running.empty() || running.front()->defunct() ||
        interface == nullptr)
        return {};
    const auto told = running.front()->value_of('r');
    const std::string router = told.value_or(server.host_name);
    const auto address = server.address_of(router);
    std::string defect;
    if (!address)
        defect = base::tr("which has no address here");
    else if (*address >> 24 == 127)
        defect = base::tr("which is {1}, each client itself", ipv4_text(*address));
    else if (server.network.in_network_of(*address) != interface && !server.network.is_own(*address))
        defect = base::tr("which is not in the network of {1}", client.name);
    // An address of this server in another of its networks is as good: it answers to all of them here.
    if (defect.empty())
        return {};
    Finding finding =
        wrong(server, *running.front(), base::tr("it names the router {1}, {2}", router, defect),
              base::tr("{1} cannot use the router that it is told with its name", client.name));
    finding.client = client.name;
    finding.severity = Severity::warning;
    return {finding};
}

} // namespace hostadm::server
