// SPDX-License-Identifier: MIT
// rpcbind: it hands clients' broadcasts on, and tells where the other daemons are.
#include <algorithm>

#include "base/translation.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr std::uint16_t mapper_port = 111;
constexpr const char *start = "rpcbind -w -r";
const char *nothing() {
    return base::tr("no client learns its name and where its root is");
}

Finding wrong(const Daemon &daemon, const std::string &what, const std::string &why = nothing()) {
    return {.stage = Stage::name,
            .where = base::tr("rpcbind, process {1}", daemon.process.pid),
            .what = what,
            .why = why,
            // A warm start keeps what the other daemons have registered.
            .repair = "kill " + std::to_string(daemon.process.pid) + "; sleep 1; " + start};
}

} // namespace

Findings port_mapper_of_server(const Snapshot &server) {
    if (server.clients.empty())
        return {};
    const Wanted wanted{.found = server.daemons.named({"rpcbind", "portmap"}),
                        .name = "rpcbind",
                        .programs = {"/usr/sbin/rpcbind", "/sbin/rpcbind"},
                        .package = "rpcbind",
                        .stage = Stage::name,
                        .why = nothing(),
                        .start = "rpcbind -r && for daemon in rpc.bootparamd ganesha.nfsd "
                                 "rpc.mountd; do pkill -x $daemon; done; hostadm check"};
    if (auto defect = defect_of_daemon(wanted)) {
        if (!wanted.found.empty() && wanted.found.front()->stopped())
            return {*defect};
        defect->repair = "rpcbind -w -r";
        if (!is_installed(wanted))
            defect->repair = "apt-get install rpcbind && rpcbind -w -r";
        return {*defect};
    }
    Findings found;
    const Daemon &daemon = *wanted.found.front();
    if (daemon.program == "rpcbind" && !daemon.has_flag('r'))
        found.push_back(
            wrong(daemon, base::tr("it runs without -r, and does not hand on what clients ask by broadcast"),
                  base::tr("no client gets an answer when it asks for its name")));
    const auto bound = [&](Socket::Kind kind) {
        return std::any_of(daemon.sockets.begin(), daemon.sockets.end(), [&](const Socket &socket) {
            return socket.kind == kind && socket.port == mapper_port && socket.address == 0;
        });
    };
    const auto listens = server.daemons.on_port(Socket::Kind::udp, mapper_port);
    const bool by_udp = bound(Socket::Kind::udp), by_tcp = bound(Socket::Kind::tcp);
    if (!daemon.sockets.empty() && !by_udp)
        found.push_back(wrong(daemon,
                              listens.empty()
                                  ? base::tr("it does not listen on port 111 of UDP")
                                  : base::tr("it listens at some addresses only, and hears no broadcast"),
                              base::tr("no client gets an answer when it asks for its name")));
    else if (!daemon.sockets.empty() && !by_tcp)
        found.push_back(wrong(daemon, base::tr("it does not listen on port 111 of TCP at every address"),
                              base::tr("a client that asks by TCP does not find the NFS server")));
    if (!found.empty())
        return found;
    constexpr std::uint32_t loopback = 0x7f000001;
    if (is_filtered_here(server, "tcp", mapper_port, loopback))
        return found; // it could not be asked
    if (server.rpc.mapper != RpcAnswers::Mapper::answered && is_denied(server, "rpcbind", loopback)) {
        found.push_back(wrong(daemon, base::tr("it turns this server itself away"),
                              base::tr("no daemon that is started from now on can register with it")));
        found.back().where = "/etc/hosts.deny";
        found.back().repair = "sed -i '1i rpcbind: 127.0.0.1' /etc/hosts.allow 2>/dev/null || "
                              "printf 'rpcbind: 127.0.0.1\\n' >>/etc/hosts.allow";
        return found;
    }
    if (server.rpc.mapper == RpcAnswers::Mapper::silent)
        found.push_back(wrong(daemon, base::tr("it does not answer")));
    else if (server.rpc.mapper == RpcAnswers::Mapper::refused)
        found.push_back(wrong(daemon, base::tr("it refuses to answer on this host itself")));
    return found;
}

} // namespace hostadm::server
