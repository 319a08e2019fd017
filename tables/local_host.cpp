// SPDX-License-Identifier: MIT
// Whether a name or an address means this host, answered without asking the network.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <fstream>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <strings.h>
#include <unistd.h>
#include <vector>

#include "hostadm/tables.h"

namespace {

constexpr const char *hosts_table = "/etc/hosts";

using Address = std::array<unsigned char, 16>; // IPv4 addresses in the mapped form ::ffff:a.b.c.d

Address mapped(const in_addr &address) {
    Address result{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    const auto *bytes = reinterpret_cast<const unsigned char *>(&address);
    std::copy_n(bytes, sizeof address, result.begin() + 12);
    return result;
}

Address plain(const in6_addr &address) {
    Address result;
    std::copy_n(address.s6_addr, result.size(), result.begin());
    return result;
}

std::optional<Address> parse_address(const std::string &text) {
    in_addr v4;
    if (inet_pton(AF_INET, text.c_str(), &v4) == 1)
        return mapped(v4);
    in6_addr v6;
    // A link-local address may name its interface: "fe80::1%eth0".
    if (inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &v6) == 1)
        return plain(v6);
    return std::nullopt;
}

std::vector<Address> interface_addresses() {
    std::vector<Address> addresses;
    ifaddrs *interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0)
        return addresses;
    for (const ifaddrs *one = interfaces; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr)
            continue;
        if (one->ifa_addr->sa_family == AF_INET)
            addresses.push_back(mapped(reinterpret_cast<const sockaddr_in *>(one->ifa_addr)->sin_addr));
        else if (one->ifa_addr->sa_family == AF_INET6)
            addresses.push_back(plain(reinterpret_cast<const sockaddr_in6 *>(one->ifa_addr)->sin6_addr));
    }
    freeifaddrs(interfaces);
    return addresses;
}

bool is_loopback(const Address &address) {
    const Address v6_loopback{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const Address v4_start = mapped(in_addr{htonl(INADDR_LOOPBACK)});
    return address == v6_loopback || std::equal(address.begin(), address.begin() + 13, v4_start.begin());
}

bool same_name(const std::string &one, const std::string &other) {
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

std::string own_name() {
    std::array<char, 257> buffer{};
    if (gethostname(buffer.data(), buffer.size() - 1) != 0)
        return {};
    return buffer.data();
}

// True when a line of the hosts table gives the name to one of our addresses.
template <typename IsOurs> bool is_alias(const std::string &name, IsOurs is_ours) {
    std::ifstream table(hosts_table);
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string address_text, alias;
        words >> address_text;
        bool named = false;
        while (!named && words >> alias)
            named = same_name(alias, name);
        if (!named)
            continue;
        const std::optional<Address> address = parse_address(address_text);
        if (address && is_ours(*address))
            return true;
    }
    return false;
}

bool is_this_host(std::string name) {
    if (name.size() > 1 && name.back() == '.') // a complete domain name
        name.pop_back();
    const auto is_ours = [](const Address &address) {
        if (is_loopback(address))
            return true;
        const std::vector<Address> ours = interface_addresses();
        return std::find(ours.begin(), ours.end(), address) != ours.end();
    };
    if (const std::optional<Address> address = parse_address(name))
        return is_ours(*address);
    const std::string own = own_name();
    if (same_name(name, "localhost") || same_name(name, own) || same_name(name, own.substr(0, own.find('.'))))
        return true;
    return is_alias(name, is_ours);
}

} // namespace

int is_local_host(const char *host) {
    if (host == nullptr || *host == '\0')
        return 0;
    try {
        return is_this_host(host) ? 1 : 0;
    } catch (...) { // memory is out
        return 0;
    }
}
