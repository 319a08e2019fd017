// SPDX-License-Identifier: MIT
// The NFS server and its mount daemon: there, registered, answering, at the version that clients speak.
#include <algorithm>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t nfs_program = 100003, mount_program = 100005;
constexpr std::uint16_t nfs_port = 2049;
const char *nothing() {
    return base::tr("no client can mount its root");
}

bool has_adapters() {
    return access("/usr/lib/nfs/nfsd", X_OK) == 0;
}

// With the adapters one command starts whichever server is installed.
std::string start(const Snapshot &server) {
    if (has_adapters())
        return "/usr/lib/nfs/mountd; /usr/lib/nfs/nfsd -a 16";
    return server.nfs == NfsServer::kernel ? "service nfs-kernel-server start" : "service nfs-ganesha start";
}

std::string start_anew(const Snapshot &server, const std::vector<const Daemon *> &running) {
    if (running.empty() || running.front()->process.arguments.empty())
        return start(server);
    return "kill " + std::to_string(running.front()->process.pid) + "; sleep 2; " + start(server);
}

Finding wrong(const Snapshot &server, const std::vector<const Daemon *> &running, const std::string &what,
              const std::string &why = nothing()) {
    return {.stage = Stage::root,
            .where = running.empty() ? base::tr("NFS server")
                                     : base::tr("{1}, process {2}", running.front()->program,
                                                running.front()->process.pid),
            .what = what,
            .why = why,
            .repair = start_anew(server, running)};
}

// A server that its clients cannot reach although it runs.
void check_answers(Findings &found, const Snapshot &server, const std::vector<const Daemon *> &running,
                   const char *what, std::uint32_t program) {
    const auto tcp = server.rpc.port_of(program, 3, true);
    const auto udp = server.rpc.port_of(program, 3, false);
    if (!tcp && !udp) {
        const bool other = server.rpc.has(program);
        found.push_back(wrong(
            server, running,
            other ? base::tr("{1} does not serve version 3", what)
                  : base::tr("{1} is not registered with rpcbind, which was started anew since", what)));
        return;
    }
    const Answer answer = server.live.null_procedure(program, 3, tcp.has_value(), tcp ? *tcp : *udp);
    constexpr std::uint32_t loopback = 0x7f000001;
    if (answer != Answer::answered &&
        !is_filtered_here(server, tcp ? "tcp" : "udp", tcp ? *tcp : *udp, loopback))
        found.push_back(
            wrong(server, running, base::tr("{1} does not answer at port {2}", what, tcp ? *tcp : *udp)));
}

void check_settings(Findings &found, const Snapshot &server, const std::vector<const Daemon *> &running) {
    if (server.nfs != NfsServer::ganesha)
        return;
    const NfsSettings &settings = server.exports;
    if (!settings.defect.empty()) {
        found.push_back(wrong(server, running, settings.defect,
                              base::tr("it exports nothing after its next start, or less than is shared")));
        found.back().where = settings.place;
        return;
    }
    const std::string file = running.empty()
                                 ? "/etc/ganesha/ganesha.conf"
                                 : running.front()->value_of('f').value_or("/etc/ganesha/ganesha.conf");
    if (!settings.version3) {
        found.push_back(wrong(server, running, base::tr("its settings leave version 3 of NFS out")));
        found.back().where = file;
        found.back().repair =
            "sed -i 's/\\(Protocols *= *\\)[0-9, ]*;/\\13, 4;/' " + file + "; " + start_anew(server, running);
    }
    if (!settings.bound_to.empty() && settings.bound_to != "0.0.0.0" && settings.bound_to != "::") {
        const auto address = server.address_of(settings.bound_to);
        for (const CheckedClient &client : server.clients)
            if (const Interface *interface = server.network.in_network_of(client.number);
                interface != nullptr && (!address || server.network.in_network_of(*address) != interface)) {
                found.push_back(wrong(server, running, base::tr("it serves at {1} only", settings.bound_to),
                                      base::tr("{1} cannot mount its root", client.name)));
                found.back().where = file;
                found.back().repair =
                    "sed -i 's/Bind_addr *= *[^;]*;//I' " + file + "; " + start_anew(server, running);
                break;
            }
    }
    if (settings.waits) {
        found.push_back(
            wrong(server, running,
                  base::tr("it waits for 90 seconds after each start for the locks of earlier clients"),
                  base::tr("a client that boots soon after the server cannot write to its root")));
        found.back().severity = Severity::warning;
        found.back().where = file;
        found.back().repair = "printf 'NFSv4 { Graceless = true; }\\n' >>" + file;
    }
}

} // namespace

Findings nfs_server_of_server(const Snapshot &server) {
    if (std::none_of(server.clients.begin(), server.clients.end(),
                     [](const CheckedClient &client) { return !client.root.empty(); }))
        return {};
    const auto ganesha = server.daemons.named({"ganesha.nfsd"});
    const bool threads = server.daemons.kernel_serves_nfs();
    const Wanted wanted{.found = ganesha,
                        .name = "ganesha.nfsd",
                        .programs = {"/usr/bin/ganesha.nfsd", "/usr/sbin/rpc.nfsd"},
                        .package = "nfs-ganesha nfs-ganesha-vfs",
                        .stage = Stage::root,
                        .why = nothing(),
                        .start = start(server)};
    if (!threads) {
        if (auto defect = defect_of_daemon(wanted)) {
            if (server.nfs == NfsServer::kernel)
                defect->where = base::tr("NFS server"),
                defect->what = base::tr("the NFS server of the kernel does not run");
            return {*defect};
        }
    }
    Findings found;
    check_settings(found, server, ganesha);
    if (server.rpc.mapper == RpcAnswers::Mapper::answered) {
        check_answers(found, server, ganesha, base::tr("the NFS server"), nfs_program);
        const bool has_mount_daemon = !ganesha.empty() || !server.daemons.named({"rpc.mountd"}).empty();
        if (!has_mount_daemon)
            found.push_back(wrong(server, {}, base::tr("the mount daemon, rpc.mountd, does not run")));
        else
            check_answers(found, server, ganesha, base::tr("the mount daemon"), mount_program);
    }
    if (const auto port = server.rpc.port_of(nfs_program, 3, true); port && *port != nfs_port)
        found.push_back(
            wrong(server, ganesha,
                  base::tr("it serves at port {1}, and clients that start from NFS ask port 2049", *port)));
    // It looks its file systems up there, and refuses every share without it.
    std::error_code error;
    if (!ganesha.empty() && !fs::exists("/etc/mtab", error)) {
        found.push_back(wrong(server, ganesha, base::tr("nfs-ganesha finds no /etc/mtab"),
                              base::tr("it refuses every share that is made from now on")));
        found.back().where = "/etc/mtab";
        found.back().repair = "ln -s ../proc/self/mounts /etc/mtab";
    }
    return found;
}

} // namespace hostadm::server
