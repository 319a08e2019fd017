// SPDX-License-Identifier: MIT
// The daemon that tells a client its address.
#include <algorithm>
#include <filesystem>
#include <net/if.h>
#include <system_error>

#include "base/translation.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr const char *start = "hostadm run host/start_daemon path=/usr/sbin/in.rarpd";
constexpr std::uint16_t reverse_arp_protocol = 0x8035;

std::vector<const Daemon *> daemons(const Snapshot &server) {
    return server.daemons.named({"in.rarpd", "rarpd"});
}

// The interface that it was told to serve; empty: all.
std::string named_interface(const Daemon &daemon) {
    std::string name;
    for (std::size_t i = 1; i < daemon.process.arguments.size(); ++i) {
        const std::string &word = daemon.process.arguments[i];
        if (word.size() > 1 && word[0] == '-' && word.back() == 'b')
            ++i;
        else if (!word.starts_with('-'))
            name = word;
    }
    return name;
}

std::string restart(const Daemon &daemon) {
    return "kill " + std::to_string(daemon.process.pid) + "; sleep 1; " + start;
}

} // namespace

Findings reverse_arp_of_server(const Snapshot &server) {
    if (!server.has_clients_but_pcs())
        return {};
    const Wanted wanted{.found = daemons(server),
                        .name = "in.rarpd",
                        .programs = {"/usr/sbin/in.rarpd", "/usr/sbin/rarpd"},
                        .package = "rarpd",
                        .stage = Stage::address,
                        .why =
                            base::tr("no client gets an answer when it asks for its address by reverse ARP"),
                        .start = start};
    if (auto defect = defect_of_daemon(wanted))
        return {*defect};
    Findings found;
    const Daemon &daemon = *wanted.found.front();
    const std::string place = base::tr("in.rarpd, process {1}", daemon.process.pid);
    const bool listens = std::any_of(daemon.sockets.begin(), daemon.sockets.end(), [](const Socket &socket) {
        return socket.kind == Socket::Kind::packet && socket.port == reverse_arp_protocol;
    });
    if (!daemon.sockets.empty() && !listens)
        found.push_back({.stage = Stage::address,
                         .where = place,
                         .what = base::tr("it has no socket for reverse ARP"),
                         .why = wanted.why,
                         .repair = restart(daemon)});
    for (const Socket &socket : daemon.sockets) {
        if (socket.kind != Socket::Kind::packet || socket.interface == 0 ||
            std::any_of(server.network.interfaces.begin(), server.network.interfaces.end(),
                        [&](const Interface &one) { return one.index == socket.interface; }))
            continue;
        found.push_back({.stage = Stage::address,
                         .where = place,
                         .what = base::tr("it listens on an interface that is gone; it was started before "
                                          "the interface of today came up"),
                         .why = wanted.why,
                         .repair = restart(daemon)});
        break;
    }
    return found;
}

Findings reverse_arp_of_client(const Snapshot &server, const CheckedClient &client) {
    const auto running = daemons(server);
    const Interface *interface = server.network.in_network_of(client.number);
    if (client.kind == ClientKind::pc || running.empty() || client.address.empty() ||
        running.front()->defunct())
        return {};
    Findings found;
    // One that serves this client is enough.
    std::string wrong;
    for (const Daemon *daemon : running) {
        const std::string name = named_interface(*daemon);
        if (name.empty() || interface == nullptr || name == interface->name)
            return [&]() -> Findings {
                const auto folder = daemon->value_of('b');
                const std::string directory = folder.value_or("/tftpboot");
                // That a client that boots by TFTP lacks its links is told of the boot area.
                const bool needs_links =
                    client.kind != ClientKind::rpl && client.kind != ClientKind::dataless;
                if (daemon->has_flag('e') || client.digits.empty() || (!folder && needs_links))
                    return {};
                std::error_code error;
                for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
                     entry.increment(error))
                    if (entry->path().filename().string().starts_with(client.digits))
                        return {};
                return {{.stage = Stage::address,
                         .client = client.name,
                         .where = base::tr("in.rarpd, process {1}", daemon->process.pid),
                         .what = base::tr("it looks for boot programs in {1}, where none is laid out for {2}",
                                          directory, client.name),
                         .why = base::tr("{1} gets no answer when it asks for its address", client.name),
                         .repair = needs_links ? restart(*daemon)
                                               : "kill " + std::to_string(daemon->process.pid) +
                                                     " && /usr/sbin/in.rarpd -ae"}};
            }();
        wrong = name;
    }
    found.push_back({.stage = Stage::address,
                     .client = client.name,
                     .where = base::tr("in.rarpd, process {1}", running.front()->process.pid),
                     .what = base::tr("it serves the interface {1} only; {2} is at {3}", wrong, client.name,
                                      interface->name),
                     .why = base::tr("{1} gets no answer when it asks for its address", client.name),
                     .repair = restart(*running.front())});
    return found;
}

} // namespace hostadm::server
