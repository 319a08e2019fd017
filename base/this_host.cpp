// SPDX-License-Identifier: MIT
#include "base/this_host.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>
#include <strings.h>
#include <unistd.h>
#include <vector>

#include "base/files.hpp"
#include "base/text.hpp"

namespace hostadm::base {

namespace {

constexpr const char *hosts_table = "/etc/hosts";

using Address = std::array<unsigned char, 16>; // IPv4 addresses in the mapped form ::ffff:a.b.c.d

Address mapped(const in_addr &address) {
    Address result{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    const auto *bytes = reinterpret_cast<const unsigned char *>(&address);
    std::copy_n(bytes, sizeof address, result.begin() + 12);
    return result;
}

std::optional<Address> address_in(const sockaddr *address) {
    if (address != nullptr && address->sa_family == AF_INET)
        return mapped(reinterpret_cast<const sockaddr_in *>(address)->sin_addr);
    if (address == nullptr || address->sa_family != AF_INET6)
        return std::nullopt;
    Address result;
    std::copy_n(reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr.s6_addr, result.size(),
                result.begin());
    return result;
}

std::optional<Address> parse_address(std::string_view text) {
    in_addr v4;
    if (inet_pton(AF_INET, std::string(text).c_str(), &v4) == 1)
        return mapped(v4);
    // A link-local address may name its interface: "fe80::1%eth0".
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    if (inet_pton(AF_INET6, std::string(text.substr(0, text.find('%'))).c_str(), &v6.sin6_addr) == 1)
        return address_in(reinterpret_cast<const sockaddr *>(&v6));
    return std::nullopt;
}

using Interfaces = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

Interfaces all_interfaces() {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        list = nullptr;
    return {list, &freeifaddrs};
}

template <typename Fits> bool any_interface(Fits fits) {
    const Interfaces all = all_interfaces();
    for (const ifaddrs *interface = all.get(); interface != nullptr; interface = interface->ifa_next)
        if (interface->ifa_addr != nullptr && fits(*interface))
            return true;
    return false;
}

std::uint32_t number_in(const sockaddr *address) {
    return ntohl(reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr);
}

bool is_loopback(const Address &address) {
    const Address v6_loopback{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const Address v4_start = mapped(in_addr{htonl(INADDR_LOOPBACK)});
    return address == v6_loopback || std::equal(address.begin(), address.begin() + 13, v4_start.begin());
}

bool is_ours(const Address &address) {
    return is_loopback(address) ||
           any_interface([&](const ifaddrs &interface) { return address_in(interface.ifa_addr) == address; });
}

bool same_name(std::string_view one, std::string_view other) {
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

// Whether a line of the hosts table gives the name to one of our addresses.
bool is_listed(std::string_view name) {
    const std::string table = file_contents(hosts_table);
    bool found = false;
    for_each_line(table, [&](std::string_view line) {
        const auto words = words_of(line.substr(0, line.find('#')));
        if (found || words.size() < 2 ||
            std::none_of(words.begin() + 1, words.end(),
                         [&](std::string_view alias) { return same_name(alias, name); }))
            return;
        const std::optional<Address> address = parse_address(words.front());
        found = address && is_ours(*address);
    });
    return found;
}

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList look_up(const std::string &name, int family) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0)
        found = nullptr;
    return {found, &freeaddrinfo};
}

bool is_resolved_to_us(const std::string &name) {
    const AddressList list = look_up(name, AF_UNSPEC);
    for (const addrinfo *found = list.get(); found != nullptr; found = found->ai_next)
        if (const auto address = address_in(found->ai_addr); address && is_ours(*address))
            return true;
    return false;
}

} // namespace

std::string own_host_name() {
    std::array<char, 257> buffer{};
    return gethostname(buffer.data(), buffer.size() - 1) == 0 ? buffer.data() : "";
}

bool is_this_host(std::string_view host, Lookup lookup, EmptyName empty) {
    if (host.empty())
        return empty == EmptyName::is_this_host;
    if (host.size() > 1 && host.back() == '.') // a complete domain name
        host.remove_suffix(1);
    if (const std::optional<Address> address = parse_address(host))
        return is_ours(*address);
    const std::string own = own_host_name();
    const std::string_view short_name = std::string_view(own).substr(0, own.find('.'));
    return same_name(host, "localhost") || same_name(host, own) || same_name(host, short_name) ||
           is_listed(host) || (lookup == Lookup::name_services && is_resolved_to_us(std::string(host)));
}

bool is_own_address(std::string_view address) {
    const std::optional<Address> wanted = parse_address(address);
    return wanted && is_ours(*wanted);
}

bool is_in_own_network(std::string_view address) {
    in_addr wanted{};
    if (inet_pton(AF_INET, std::string(address).c_str(), &wanted) != 1)
        return false;
    return any_interface([&](const ifaddrs &interface) {
        if (interface.ifa_addr->sa_family != AF_INET || interface.ifa_netmask == nullptr)
            return false;
        const std::uint32_t mask = number_in(interface.ifa_netmask);
        return (number_in(interface.ifa_addr) & mask) == (ntohl(wanted.s_addr) & mask);
    });
}

std::vector<OwnNetwork> own_networks() {
    std::vector<OwnNetwork> networks;
    const Interfaces all = all_interfaces();
    for (const ifaddrs *interface = all.get(); interface != nullptr; interface = interface->ifa_next)
        if (interface->ifa_addr != nullptr && interface->ifa_addr->sa_family == AF_INET &&
            interface->ifa_netmask != nullptr && (interface->ifa_flags & IFF_LOOPBACK) == 0)
            networks.push_back(
                {interface->ifa_name, number_in(interface->ifa_addr), number_in(interface->ifa_netmask)});
    return networks;
}

std::string address_of_host(const std::string &name) {
    const AddressList list = look_up(name, AF_INET);
    if (list == nullptr)
        return {};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(list->ai_addr)->sin_addr, text.data(),
              text.size());
    return text.data();
}

} // namespace hostadm::base
