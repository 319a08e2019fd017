// SPDX-License-Identifier: MIT
#include "server/checks/network.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include "base/descriptor.hpp"
#include "base/files.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "server/checks/system_tables.hpp"

namespace hostadm::server {

namespace {

Interface &entry_of(std::vector<Interface> &interfaces, const ifaddrs &address) {
    const std::string name = address.ifa_name;
    const auto found = std::find_if(interfaces.begin(), interfaces.end(),
                                    [&](const Interface &one) { return one.name == name; });
    if (found != interfaces.end())
        return *found;
    interfaces.push_back({name, if_nametoindex(name.c_str()), address.ifa_flags, {}, {}});
    return interfaces.back();
}

std::uint32_t number_in(const sockaddr *address) {
    return ntohl(reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr);
}

std::vector<Interface> read_interfaces() {
    std::vector<Interface> interfaces;
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return interfaces;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    for (const ifaddrs *one = list; one != nullptr; one = one->ifa_next) {
        // An address may bear a label such as eth0:1.
        ifaddrs plain = *one;
        std::string name = one->ifa_name;
        name.resize(std::min(name.find(':'), name.size()));
        plain.ifa_name = name.data();
        Interface &interface = entry_of(interfaces, plain);
        if (one->ifa_addr == nullptr)
            continue;
        if (one->ifa_addr->sa_family == AF_INET && one->ifa_netmask != nullptr)
            interface.addresses.push_back({number_in(one->ifa_addr), number_in(one->ifa_netmask)});
        if (one->ifa_addr->sa_family != AF_PACKET)
            continue;
        const auto *link = reinterpret_cast<const sockaddr_ll *>(one->ifa_addr);
        if (link->sll_hatype == ARPHRD_ETHER && link->sll_halen == 6)
            interface.ethernet.assign(reinterpret_cast<const char *>(link->sll_addr), 6);
    }
    return interfaces;
}

// "ADDRESS TYPE FLAGS ETHERNET MASK DEVICE" below a heading.
std::vector<Neighbour> read_neighbours(const std::string &proc) {
    std::vector<Neighbour> neighbours;
    base::for_each_line(base::file_contents(proc + "/net/arp"), [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() != 6 || ipv4_value(std::string(words[0])).empty())
            return;
        constexpr unsigned long permanent = ATF_PERM;
        const unsigned long flags = std::stoul("0" + std::string(words[2]).substr(1), nullptr, 16);
        neighbours.push_back({std::string(words[0]), ethernet_value(std::string(words[3])),
                              std::string(words[5]), (flags & permanent) != 0});
    });
    return neighbours;
}

} // namespace

const Interface *Network::in_network_of(std::uint32_t address) const {
    const Interface *best = nullptr;
    for (const Interface &interface : interfaces)
        for (const Subnet &net : interface.addresses)
            if ((interface.flags & IFF_LOOPBACK) == 0 && net.holds(address) &&
                (best == nullptr || (best->flags & IFF_UP) == 0))
                best = &interface;
    return best;
}

bool Network::is_own(std::uint32_t address) const {
    return std::any_of(interfaces.begin(), interfaces.end(), [&](const Interface &interface) {
        return std::any_of(interface.addresses.begin(), interface.addresses.end(),
                           [&](const Subnet &net) { return net.address == address; });
    });
}

Network read_network(const std::string &proc) {
    const base::Answer qdiscs =
        base::run_and_listen({.words = {"tc", "qdisc", "show"}, .search = true, .time_limit = 2});
    return {read_interfaces(), read_neighbours(proc), read_routes(proc), parse_throttled(qdiscs.output)};
}

void Routes::add(std::uint32_t destination, std::uint32_t mask, Route route) {
    // Of several the first has the smallest metric.
    by_mask_[mask].try_emplace(destination & mask, std::move(route));
}

const Route *Routes::towards(std::uint32_t address) const {
    for (const auto &[mask, routes] : by_mask_)
        if (const auto found = routes.find(address & mask); found != routes.end())
            return &found->second;
    return nullptr;
}

// "INTERFACE DESTINATION GATEWAY FLAGS REFERENCES USE METRIC MASK ..." below a heading; addresses as the number that
// their bytes make on this machine.
Routes read_routes(const std::string &proc) {
    Routes routes;
    base::for_each_line(base::file_contents(proc + "/net/route"), [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() < 8 || words[0] == "Iface")
            return;
        const auto number = [&](std::size_t column) {
            std::uint32_t value = 0;
            std::from_chars(words[column].data(), words[column].data() + words[column].size(), value, 16);
            return ntohl(value);
        };
        constexpr std::uint32_t up = 1, reject = 0x200;
        std::uint32_t flags = 0;
        std::from_chars(words[3].data(), words[3].data() + words[3].size(), flags, 16);
        if ((flags & up) != 0 && (flags & reject) == 0)
            routes.add(number(1), number(7), {std::string(words[0]), number(2)});
    });
    return routes;
}

// What throws packets away, or lets none pass that is as large as a boot program's blocks. Nothing: none does.
std::map<std::string, std::string> parse_throttled(std::string_view qdiscs) {
    std::map<std::string, std::string> found;
    base::for_each_line(qdiscs, [&](std::string_view line) {
        // "qdisc KIND HANDLE dev INTERFACE root ... rate 1Kbit burst 10b ..."
        const auto words = base::words_of(line);
        const auto after = [&](std::string_view name) {
            const auto at = std::find(words.begin(), words.end(), name);
            return at == words.end() || at + 1 == words.end() ? std::string() : std::string(at[1]);
        };
        if (words.size() < 5 || words[3] != "dev")
            return;
        const std::string rate = after("rate"), burst = after("burst"), loss = after("loss");
        // In the units that tc prints: "10b", "1Kb", "1600b"; "1Kbit", "800bit".
        const bool slow = rate.ends_with("bit") && !rate.ends_with("Mbit") && !rate.ends_with("Gbit") &&
                          (!rate.ends_with("Kbit") || std::atoi(rate.c_str()) < 64);
        const bool narrow = burst.ends_with("b") && !burst.ends_with("Kb") && !burst.ends_with("Mb") &&
                            std::atoi(burst.c_str()) < 600;
        if ((words[1] == "tbf" && (slow || narrow)) ||
            (words[1] == "netem" && std::atoi(loss.c_str()) >= 5) ||
            ((words[1] == "pfifo" || words[1] == "bfifo") && after("limit").starts_with('0')))
            found.emplace(words[4], line.substr(0, line.find_last_not_of(' ') + 1));
    });
    return found;
}

// A socket that is bound to a peer tells which way the kernel would take; nothing is sent.
Way way_to(std::uint32_t address) {
    const base::Descriptor wire(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(9);
    peer.sin_addr.s_addr = htonl(address);
    if (!wire.is_open() || connect(wire.get(), reinterpret_cast<const sockaddr *>(&peer), sizeof peer) != 0)
        return {errno, 0};
    sockaddr_in own{};
    socklen_t size = sizeof own;
    if (getsockname(wire.get(), reinterpret_cast<sockaddr *>(&own), &size) != 0)
        return {errno, 0};
    return {0, ntohl(own.sin_addr.s_addr)};
}

} // namespace hostadm::server
