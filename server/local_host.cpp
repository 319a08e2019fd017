// SPDX-License-Identifier: MIT
#include "server/local_host.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <unistd.h>

#include "base/text.hpp"
#include "server/host_tables.hpp"

namespace hostadm::server {

namespace {

// Whether any IPv4 address of this host, with its network mask, fits.
template <typename Fits> bool any_interface(Fits fits) {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return false;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    for (const ifaddrs *interface = list; interface != nullptr; interface = interface->ifa_next) {
        if (interface->ifa_addr == nullptr || interface->ifa_addr->sa_family != AF_INET ||
            interface->ifa_netmask == nullptr)
            continue;
        const auto own = reinterpret_cast<const sockaddr_in *>(interface->ifa_addr)->sin_addr.s_addr;
        const auto mask = reinterpret_cast<const sockaddr_in *>(interface->ifa_netmask)->sin_addr.s_addr;
        if (fits(own, mask))
            return true;
    }
    return false;
}

} // namespace

std::string local_host_name() {
    char name[257] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

bool is_this_host(const std::string &name) {
    const std::string address = address_of_host(name);
    return base::lower_case(name) == base::lower_case(local_host_name()) || address.starts_with("127.") ||
           (!address.empty() && is_own_address(address));
}

bool is_own_address(const std::string &address) {
    const in_addr_t wanted = inet_addr(address.c_str());
    return any_interface([&](in_addr_t own, in_addr_t) { return own == wanted; });
}

bool is_in_own_network(const std::string &address) {
    const in_addr_t wanted = inet_addr(address.c_str());
    return any_interface([&](in_addr_t own, in_addr_t mask) { return (own & mask) == (wanted & mask); });
}

std::string address_of_host(const std::string &name) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0)
        return {};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_addr, text, sizeof text);
    return text;
}

} // namespace hostadm::server
