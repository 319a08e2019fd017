// SPDX-License-Identifier: MIT
// The interfaces at which clients ask, and the ways back to them.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <set>

#include "base/files.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

// An interface without an address is the likely one, when no other has one in the client's network.
const Interface *interface_without_address(const Snapshot &server) {
    const Interface *only = nullptr;
    for (const Interface &one : server.network.interfaces)
        if ((one.flags & IFF_LOOPBACK) == 0 && !one.ethernet.empty() && one.addresses.empty()) {
            if (only != nullptr)
                return nullptr;
            only = &one;
        }
    return only;
}

Finding no_network(const Snapshot &server, const CheckedClient &client) {
    const Interface *idle = interface_without_address(server);
    // Its servers' names may tell which address it had.
    std::string address = "ADDRESS";
    if (const BootItem *root = server.entry_of(client).item("root"))
        if (const auto number = server.address_of(root->server);
            number && *number >> 24 != 127 && !server.network.is_own(*number))
            address = ipv4_text(*number);
    return {.stage = Stage::address,
            .client = client.name,
            .where = idle == nullptr ? base::tr("interfaces") : base::tr("interface {1}", idle->name),
            .what = base::tr("no interface of this server has an address in the network of {1}, {2}",
                             client.name, client.address),
            .why = base::tr("{1} gets no answer when it asks for its address", client.name),
            .repair = "ip addr add " + address + "/24 brd + dev " +
                      (idle == nullptr ? "INTERFACE" : idle->name) + " && ip link set " +
                      (idle == nullptr ? "INTERFACE" : idle->name) + " up"};
}

int setting(const std::string &interface, const std::string &name) {
    const std::string folder = "/proc/sys/net/ipv4/conf/";
    return std::max(std::atoi(base::file_contents(folder + interface + "/" + name).c_str()),
                    std::atoi(base::file_contents(folder + "all/" + name).c_str()));
}

// The number of a rule that forbids to send to an address, in the policy that stands above all tables of routes.
std::string forbidding_rule(std::uint32_t address) {
    const base::Answer answer =
        base::run_and_listen({.words = {"ip", "-4", "rule", "list"}, .search = true, .time_limit = 2});
    std::string number;
    base::for_each_line(answer.output, [&](std::string_view line) {
        // "PREF: from SOURCE [to DESTINATION] ... ACTION"
        const auto words = base::words_of(line);
        if (!number.empty() || words.size() < 4 ||
            (words.back() != "prohibit" && words.back() != "unreachable" && words.back() != "blackhole"))
            return;
        const auto to = std::find(words.begin(), words.end(), "to");
        if (to != words.end() && to + 1 != words.end()) {
            const std::string network(to[1]);
            const std::size_t slash = std::min(network.find('/'), network.size());
            const std::string value = ipv4_value(network.substr(0, slash));
            const int bits = slash == network.size() ? 32 : std::atoi(network.c_str() + slash + 1);
            const std::uint32_t mask = bits <= 0 ? 0 : ~0u << (32 - std::min(bits, 32));
            if (value.empty() || (ipv4_number(value) & mask) != (address & mask))
                return;
        }
        number = words[0].substr(0, words[0].find(':'));
    });
    return number;
}

bool leads_elsewhere(const Snapshot &server, const CheckedClient &client, const Interface &interface,
                     const Route &route) {
    if (route.interface == interface.name)
        return false;
    // Two interfaces of one network are as good.
    for (const Interface &other : server.network.interfaces)
        if (other.name == route.interface)
            for (const Subnet &net : other.addresses)
                if (net.holds(client.number))
                    return false;
    // An address without a network, as with a provider's, is reached through a gateway.
    return route.gateway == 0;
}

} // namespace

Findings interfaces_of_server(const Snapshot &server) {
    Findings found;
    std::set<std::string> seen;
    for (const CheckedClient &client : server.clients) {
        const Interface *interface = server.network.in_network_of(client.number);
        if (client.address.empty() || interface == nullptr || !seen.insert(interface->name).second)
            continue;
        const std::string &name = interface->name;
        const auto add = [&](const std::string &what, const std::string &repair, const std::string &why) {
            found.push_back({.stage = Stage::address,
                             .where = base::tr("interface {1}", name),
                             .what = what,
                             .why = why,
                             .repair = repair});
        };
        const std::string why = base::tr("no client at it gets an answer");
        if ((interface->flags & IFF_UP) == 0)
            add(base::tr("it is down"), "ip link set " + name + " up", why);
        else if ((interface->flags & IFF_RUNNING) == 0)
            add(base::tr("it has no carrier: no cable, or nobody at its other end"),
                "ip link set " + name + " down; ip link set " + name + " up; ip link show " + name, why);
        if ((interface->flags & IFF_NOARP) != 0)
            add(base::tr("ARP is switched off at it"), "ip link set " + name + " arp on",
                base::tr("clients do not find this server after their reverse ARP"));
        constexpr int none_answered = 8;
        if (setting(name, "arp_ignore") >= none_answered)
            add(base::tr("it answers no ARP request (arp_ignore)"),
                "sysctl -w net.ipv4.conf." + name + ".arp_ignore=0 net.ipv4.conf.all.arp_ignore=0",
                base::tr("clients do not find this server after their reverse ARP"));
        if (const auto limit = server.network.throttled.find(name); limit != server.network.throttled.end())
            add(base::tr("what leaves at it is thrown away or held up: {1}", limit->second),
                "tc qdisc del dev " + name + " root", base::tr("no boot program reaches a client at it"));
        // Two that are alike answer each other's clients.
        for (const Interface &other : server.network.interfaces)
            for (const Subnet &net : other.addresses)
                for (const Subnet &own : interface->addresses)
                    if (&other != interface && net.address == own.address && net.address >> 24 != 127)
                        add(base::tr("its address {1} is that of {2} as well", ipv4_text(own.address),
                                     other.name),
                            "ip addr del " + ipv4_text(net.address) + "/" +
                                std::to_string(__builtin_popcount(net.mask)) + " dev " + other.name,
                            base::tr("answers may leave at the wrong interface"));
    }
    return found;
}

Findings interfaces_of_client(const Snapshot &server, const CheckedClient &client) {
    if (client.address.empty() || server.network.is_own(client.number))
        return {};
    const Interface *interface = server.network.in_network_of(client.number);
    if (interface == nullptr)
        return {no_network(server, client)};
    if ((interface->flags & IFF_UP) == 0)
        return {}; // told once, for all of its clients
    const Way way = server.live.way_to(client.number);
    Finding finding{.stage = Stage::boot_program, .client = client.name, .where = "routes"};
    if (way.error != 0 && way.error != EPERM) {
        finding.what = base::tr("there is no way to {1}: {2}", client.address, std::strerror(way.error));
        finding.why = base::tr("no answer but the first, by reverse ARP, reaches {1}", client.name);
        std::string networks;
        for (const Subnet &net : interface->addresses)
            if (net.holds(client.number))
                networks = ipv4_text(net.first()) + "/" + std::to_string(__builtin_popcount(net.mask)) +
                           " dev " + interface->name + " src " + ipv4_text(net.address);
        finding.repair = "ip route flush root " + client.address + "/32; ip route replace " + networks;
        if (const std::string rule = forbidding_rule(client.number); !rule.empty()) {
            finding.what += base::tr(", by the rule {1} of the routes' policy (ip rule list)", rule);
            finding.repair = "ip rule del pref " + rule;
        }
        return {finding};
    }
    if (const Route *route = server.network.routes.towards(client.number);
        route != nullptr && leads_elsewhere(server, client, *interface, *route)) {
        finding.what = base::tr("the route to {1} leads to {2}, and {3} is at {4}", client.address,
                                route->interface, client.name, interface->name);
        finding.why = base::tr("no answer but the first, by reverse ARP, reaches {1}", client.name);
        finding.repair = "ip route del " + client.address + " dev " + route->interface +
                         " || ip route del $(ip route get " + client.address +
                         " | head -n 1 | cut -d ' ' -f 1) dev " + route->interface;
        return {finding};
    }
    for (const Subnet &net : interface->addresses)
        if (net.address == way.source)
            return {};
    finding.what = base::tr("packets to {1} do not leave at {2} but with the address {3}", client.address,
                            interface->name, ipv4_text(way.source));
    finding.why =
        base::tr("{1} gets its answers from an address that it has not asked, or not at all", client.name);
    finding.repair = "ip route del $(ip route get " + client.address + " | head -n 1 | sed 's/ .*//')/32";
    return way.error == 0 ? Findings{finding} : Findings{};
}

} // namespace hostadm::server
