// SPDX-License-Identifier: MIT
#include "rehearsal/rehearsal.hpp"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <sys/mman.h>
#include <thread>
#include <vector>

#include "base/descriptor.hpp"
#include "base/files.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm/sandbox.hpp"
#include "rehearsal/walked_json.hpp"
#include "server/host_tables.hpp"

namespace hostadm::rehearsal {

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;

constexpr auto time_limit = std::chrono::seconds(120);

// The interface at which the client's cable ends: that in its network; without one, the first that is there.
std::string interface_for(const Network &network, const std::string &address) {
    if (const Interface *interface = interface_towards(network, address))
        return interface->name;
    for (const Interface &interface : network.interfaces)
        if (interface.up)
            return interface.name;
    if (network.interfaces.empty())
        throw std::runtime_error(
            base::tr("this server has no network interface to which a client's cable could lead"));
    return network.interfaces.front().name;
}

// Names that a name service outside knows and the hosts table does not: there is no way out of the throwaway
// root's network, so they are put into its table.
std::string names_from_outside(const BootingClient &client) {
    std::string lines;
    std::vector<std::string> names = {client.name};
    for (const server::BootparamsItem &item : client.items)
        names.push_back(item.server);
    for (const std::string &name : names) {
        if (name.empty() || name.front() < 'A' || !server::hosts_table().key_of(name).empty())
            continue;
        if (const std::string address = base::address_of_host(name); !address.empty())
            lines += address + '\t' + name + '\n';
    }
    return lines;
}

// The mount daemon may be registered a moment later than its server serves.
std::optional<std::vector<Exported>> exports_of(const std::vector<Started> &daemons,
                                                const std::string &server) {
    constexpr auto patience = std::chrono::seconds(3);
    const bool runs = std::any_of(daemons.begin(), daemons.end(), [](const Started &daemon) {
        return daemon.start.service == Service::nfs && daemon.failure.empty();
    });
    auto exports = export_list(server);
    for (const auto begin = Clock::now(); runs && !exports && Clock::now() - begin < patience;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        exports = export_list(server);
    }
    return exports;
}

int walk_inside(const BootingClient &client, const Network &network, const std::string &interface,
                const std::vector<DaemonStart> &starts, const std::string &more_hosts, int result,
                const std::function<void(const StageResult &)> &tell) {
    if (!more_hosts.empty())
        std::ofstream("/etc/hosts", std::ios::app) << '\n' << more_hosts;
    Json json;
    try {
        const Cable cable(network, interface, client.ethernet);
        const std::string server = own_address_towards(network, client.address);
        const std::vector<Started> daemons = start_daemons(starts, server);
        const auto exports = exports_of(daemons, server.empty() ? "127.0.0.1" : server);
        cable.go_to_client();
        Walked walked = walk(client, network, cable, daemons, tell);
        if (exports)
            walked.seen["exports"] = in_one_line(*exports);
        if (!cable.not_copied().empty())
            walked.not_tried.push_back(cable.not_copied());
        json = json_of(walked);
    } catch (const std::exception &failure) {
        json = {{"failure", failure.what()}};
    }
    return base::write_all(result, json.dump(-1, ' ', false, Json::error_handler_t::replace)) ? 0 : 1;
}

} // namespace

Rehearsed rehearse(const std::string &name, Settings settings,
                   const std::function<void(const StageResult &)> &tell) {
    const auto begin = Clock::now();
    Rehearsed rehearsed;
    rehearsed.client = read_client(name);
    const BootingClient &client = rehearsed.client;
    const Network network = network_of_this_server();
    rehearsed.interface = interface_for(network, client.address);
    const std::vector<DaemonStart> starts = daemons_of_this_server(settings, client.kind);
    const std::string more_hosts = names_from_outside(client);

    const base::Descriptor result(memfd_create("rehearsal", MFD_CLOEXEC));
    sandbox::Options options;
    options.exportable = true;
    options.time_limit = time_limit;
    options.work = [&] {
        return walk_inside(client, network, rehearsed.interface, starts, more_hosts, result.get(), tell);
    };
    const sandbox::Outcome outcome = sandbox::run(options);
    if (outcome.interrupted_by != 0)
        throw std::runtime_error("interrupted");
    const Json json = Json::parse(base::read_whole(result.get()).value_or(""), nullptr, false);
    if (json.is_discarded() || json.empty())
        throw std::runtime_error(outcome.timed_out ? base::tr("it had not ended when the time limit passed")
                                                   : base::tr("it was cut off in its throwaway root"));
    if (json.contains("failure"))
        throw std::runtime_error(json["failure"]);
    rehearsed.walked = walked_of(json);
    for (const std::string &point : outcome.read_only)
        rehearsed.walked.not_tried.push_back(base::tr("writing to {1}: it cannot be layered", point));
    for (server::Finding &finding : differences_of_live_daemons(client, network, rehearsed.walked))
        rehearsed.walked.findings.push_back(std::move(finding));
    rehearsed.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    return rehearsed;
}

} // namespace hostadm::rehearsal
