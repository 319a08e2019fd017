// SPDX-License-Identifier: MIT
#include "base/this_host.hpp"

#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <strings.h>
#include <unistd.h>

namespace hostadm::base {

namespace {

bool same_address(const sockaddr &one, const sockaddr &other) {
    if (one.sa_family != other.sa_family)
        return false;
    if (one.sa_family == AF_INET)
        return std::memcmp(&reinterpret_cast<const sockaddr_in &>(one).sin_addr,
                           &reinterpret_cast<const sockaddr_in &>(other).sin_addr, sizeof(in_addr)) == 0;
    if (one.sa_family == AF_INET6)
        return std::memcmp(&reinterpret_cast<const sockaddr_in6 &>(one).sin6_addr,
                           &reinterpret_cast<const sockaddr_in6 &>(other).sin6_addr, sizeof(in6_addr)) == 0;
    return false;
}

bool is_own_address(const sockaddr &address) {
    if (address.sa_family == AF_INET &&
        (ntohl(reinterpret_cast<const sockaddr_in &>(address).sin_addr.s_addr) >> 24) == IN_LOOPBACKNET)
        return true;
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return false;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs *own = list; own != nullptr; own = own->ifa_next)
        if (own->ifa_addr != nullptr && same_address(*own->ifa_addr, address))
            return true;
    return false;
}

} // namespace

bool is_this_host(std::string_view host) {
    const std::string name(host);
    if (name.empty() || strcasecmp(name.c_str(), "localhost") == 0)
        return true;
    char own[256] = "";
    if (gethostname(own, sizeof own - 1) == 0 && strcasecmp(name.c_str(), own) == 0)
        return true;
    addrinfo *list = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, nullptr, &list) != 0)
        return false;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
    for (const addrinfo *found = list; found != nullptr; found = found->ai_next)
        if (is_own_address(*found->ai_addr))
            return true;
    return false;
}

} // namespace hostadm::base
