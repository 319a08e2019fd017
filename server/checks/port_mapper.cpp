// SPDX-License-Identifier: MIT
// rpcbind: it hands clients' broadcasts on, and tells where the other daemons are.
#include <algorithm>

#include "base/translation.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr std::uint16_t mapper_port = 111;

// PCs ask for nothing by broadcast, and without any other clients rpcbind hands nothing on.
bool hears_broadcasts(const Snapshot &server) {
    return std::any_of(server.clients.begin(), server.clients.end(),
                       [](const CheckedClient &client) { return client.kind != ClientKind::pc; });
}

std::string start(const Snapshot &server) {
    return hears_broadcasts(server) ? "rpcbind -w -r" : "rpcbind -w";
}

std::string nothing(const Snapshot &server) {
    return hears_broadcasts(server) ? base::tr("no client learns its name and where its root is")
                                    : base::tr("no client finds the NFS server that its root is on");
}

Finding wrong(const Snapshot &server, const Daemon &daemon, const std::string &what, const std::string &why) {
    return {.stage = Stage::name,
            .where = base::tr("rpcbind, process {1}", daemon.process.pid),
            .what = what,
            .why = why,
            // A warm start keeps what the other daemons have registered.
            .repair = "kill " + std::to_string(daemon.process.pid) + "; sleep 1; " + start(server)};
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
                        .why = nothing(server),
                        .start =
                            std::string(hears_broadcasts(server) ? "rpcbind -r" : "rpcbind") +
                            " && for daemon in rpc.bootparamd ganesha.nfsd rpc.mountd; do pkill -x $daemon; "
                            "done; hostadm check"};
    if (auto defect = defect_of_daemon(wanted)) {
        if (!wanted.found.empty() && wanted.found.front()->stopped())
            return {*defect};
        defect->repair = (is_installed(wanted) ? "" : "apt-get install rpcbind && ") + start(server);
        return {*defect};
    }
    Findings found;
    const Daemon &daemon = *wanted.found.front();
    if (hears_broadcasts(server) && daemon.program == "rpcbind" && !daemon.has_flag('r'))
        found.push_back(
            wrong(server, daemon,
                  base::tr("it runs without -r, and does not hand on what clients ask by broadcast"),
                  base::tr("no client gets an answer when it asks for its name")));
    const auto bound = [&](Socket::Kind kind) {
        return std::any_of(daemon.sockets.begin(), daemon.sockets.end(), [&](const Socket &socket) {
            return socket.kind == kind && socket.port == mapper_port && socket.address == 0;
        });
    };
    const auto listens = server.daemons.on_port(Socket::Kind::udp, mapper_port);
    const bool by_udp = bound(Socket::Kind::udp), by_tcp = bound(Socket::Kind::tcp);
    if (!daemon.sockets.empty() && !by_udp && (hears_broadcasts(server) || listens.empty()))
        found.push_back(wrong(server, daemon,
                              listens.empty()
                                  ? base::tr("it does not listen on port 111 of UDP")
                                  : base::tr("it listens at some addresses only, and hears no broadcast"),
                              base::tr("no client gets an answer when it asks for its name")));
    else if (!daemon.sockets.empty() && !by_tcp)
        found.push_back(wrong(server, daemon,
                              base::tr("it does not listen on port 111 of TCP at every address"),
                              base::tr("a client that asks by TCP does not find the NFS server")));
    if (!found.empty())
        return found;
    constexpr std::uint32_t loopback = 0x7f000001;
    if (is_filtered_here(server, "tcp", mapper_port, loopback))
        return found; // it could not be asked
    if (server.rpc.mapper != RpcAnswers::Mapper::answered && is_denied(server, "rpcbind", loopback)) {
        found.push_back(wrong(server, daemon, base::tr("it turns this server itself away"),
                              base::tr("no daemon that is started from now on can register with it")));
        found.back().where = "/etc/hosts.deny";
        found.back().repair = "sed -i '1i rpcbind: 127.0.0.1' /etc/hosts.allow 2>/dev/null || "
                              "printf 'rpcbind: 127.0.0.1\\n' >>/etc/hosts.allow";
        return found;
    }
    if (server.rpc.mapper == RpcAnswers::Mapper::silent)
        found.push_back(wrong(server, daemon, base::tr("it does not answer"), nothing(server)));
    else if (server.rpc.mapper == RpcAnswers::Mapper::refused)
        found.push_back(
            wrong(server, daemon, base::tr("it refuses to answer on this host itself"), nothing(server)));
    return found;
}

} // namespace hostadm::server
