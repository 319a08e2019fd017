// SPDX-License-Identifier: MIT
#include "rehearsal/network.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cstdio>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <memory>
#include <net/if.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "rehearsal/command.hpp"

namespace hostadm::rehearsal {

namespace {

std::string in_dots(const sockaddr *address) {
    char text[INET_ADDRSTRLEN] = "";
    if (address != nullptr && address->sa_family == AF_INET)
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, text, sizeof text);
    return text;
}

std::string in_colons(const sockaddr_ll &address) {
    char text[18] = "";
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", address.sll_addr[0],
                  address.sll_addr[1], address.sll_addr[2], address.sll_addr[3], address.sll_addr[4],
                  address.sll_addr[5]);
    return text;
}

std::vector<Interface> interfaces() {
    std::vector<Interface> all;
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return all;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_LOOPBACK) != 0)
            continue;
        auto known = std::find_if(all.begin(), all.end(),
                                  [&](const Interface &each) { return each.name == entry->ifa_name; });
        if (known == all.end())
            known = all.insert(all.end(), Interface{.name = entry->ifa_name,
                                                    .ethernet = {},
                                                    .up = (entry->ifa_flags & IFF_UP) != 0,
                                                    .addresses = {}});
        if (entry->ifa_addr->sa_family == AF_PACKET) {
            const auto &link = *reinterpret_cast<const sockaddr_ll *>(entry->ifa_addr);
            if (link.sll_halen == 6)
                known->ethernet = in_colons(link);
        } else if (entry->ifa_addr->sa_family == AF_INET && entry->ifa_netmask != nullptr) {
            const auto mask = reinterpret_cast<const sockaddr_in *>(entry->ifa_netmask)->sin_addr.s_addr;
            known->addresses.push_back(
                {in_dots(entry->ifa_addr),
                 (entry->ifa_flags & IFF_BROADCAST) != 0 ? in_dots(entry->ifa_broadaddr) : std::string(),
                 std::popcount(mask)});
        }
    }
    return all;
}

// Lines of a listing that keep a word, or do not; states of the moment are no part of a route.
std::vector<std::string> lines_of(const std::string &listing, bool (*wanted)(std::string_view)) {
    std::vector<std::string> lines;
    base::for_each_line(listing, [&](std::string_view line) {
        if (base::trimmed(line).empty() || !wanted(line))
            return;
        std::string kept;
        for (const std::string_view word : base::words_of(line))
            if (word != "linkdown" && word != "dead" && word != "onlink")
                kept += (kept.empty() ? "" : " ") + std::string(word == "PERMANENT" ? "nud permanent" : word);
        lines.push_back(kept);
    });
    return lines;
}

// What lies beyond a router is not on the cable, and a name server that cannot be reached must be known at once
// as one.
bool is_own_route(std::string_view line) {
    return line.find("proto kernel") == line.npos && !line.starts_with("default");
}

std::vector<std::string> settings(const std::vector<Interface> &interfaces) {
    std::vector<std::string> all;
    std::vector<std::string> places = {"all", "default"};
    for (const Interface &interface : interfaces)
        places.push_back(interface.name);
    for (const std::string &place : places)
        for (const char *name :
             {"rp_filter", "arp_ignore", "arp_filter", "arp_announce", "drop_gratuitous_arp"}) {
            const std::string value = base::file_contents("/proc/sys/net/ipv4/conf/" + place + '/' + name);
            if (!value.empty() && value != "0\n")
                all.push_back(place + '/' + name + '=' + value.substr(0, value.find('\n')));
        }
    return all;
}

} // namespace

Network network_of_this_server() {
    Network network;
    network.interfaces = interfaces();
    network.routes = lines_of(ask({"ip", "-4", "route", "show"}).output, is_own_route);
    network.neighbours = lines_of(ask({"ip", "-4", "neighbour", "show", "nud", "permanent"}).output,
                                  [](std::string_view) { return true; });
    network.settings = settings(network.interfaces);
    if (is_installed("nft"))
        network.filter = ask({"nft", "list", "ruleset"}).output;
    // What iptables keeps beside nft, in the kernel's older tables.
    if (is_installed("iptables-legacy-save"))
        network.old_filter = ask({"iptables-legacy-save"}).output;
    return network;
}

bool is_in_network(const std::string &address, const OwnAddress &network) {
    in_addr one{}, other{};
    if (inet_pton(AF_INET, address.c_str(), &one) != 1 ||
        inet_pton(AF_INET, network.address.c_str(), &other) != 1)
        return false;
    const in_addr_t mask = network.prefix == 0 ? 0 : htonl(~in_addr_t{0} << (32 - network.prefix));
    return (one.s_addr & mask) == (other.s_addr & mask);
}

const Interface *interface_towards(const Network &network, const std::string &address) {
    for (const Interface &interface : network.interfaces)
        for (const OwnAddress &own : interface.addresses)
            if (is_in_network(address, own))
                return &interface;
    return nullptr;
}

std::string own_address_towards(const Network &network, const std::string &address) {
    if (const Interface *interface = interface_towards(network, address))
        for (const OwnAddress &own : interface->addresses)
            if (is_in_network(address, own))
                return own.address;
    return {};
}

bool is_own_address(const Network &network, const std::string &address) {
    for (const Interface &interface : network.interfaces)
        for (const OwnAddress &own : interface.addresses)
            if (own.address == address)
                return true;
    return false;
}

} // namespace hostadm::rehearsal
