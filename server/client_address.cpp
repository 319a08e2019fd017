// SPDX-License-Identifier: MIT
#include "server/client_address.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <netinet/ether.h>

#include "base/translation.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

namespace {

std::uint32_t number_of(const std::string &address) {
    return ntohl(inet_addr(address.c_str()));
}

std::string text_of(std::uint32_t address) {
    const in_addr number{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &number, text.data(), text.size());
    return text.data();
}

std::string in_words(const base::OwnNetwork &network) {
    return base::tr("{1}/{2} of {3}", text_of(network.first()), std::popcount(network.mask),
                    network.interface);
}

std::string in_words(const std::vector<base::OwnNetwork> &networks) {
    std::string text;
    for (const base::OwnNetwork &network : networks)
        text += (text.empty() ? "" : ", ") + in_words(network);
    return text;
}

} // namespace

void check_is_a_hosts(const std::string &text, const std::vector<base::OwnNetwork> &networks) {
    const std::uint32_t address = number_of(text);
    for (const base::OwnNetwork &network : networks) {
        if (!network.has_addresses_of_its_own() || (address != network.first() && address != network.last()))
            continue;
        const std::string from = text_of(network.first() + 1), to = text_of(network.last() - 1);
        fail(Code::unusable,
             address == network.first()
                 ? base::tr("{1} is the address of the network {2}, and no host's; give one from {3} to {4}",
                            text, in_words(network), from, to)
                 : base::tr("{1} is the broadcast address of the network {2}, and no host's; give one from "
                            "{3} to {4}",
                            text, in_words(network), from, to));
    }
}

void check_client_address(const std::string &text, const std::vector<base::OwnNetwork> &networks) {
    const std::uint32_t address = number_of(text);

    if (address >> 24 == 0)
        refuse(base::tr("{1} is no address of a host in a network, but says that there is none yet; give the "
                        "client's own address",
                        text));
    if (address >> 24 == 127)
        refuse(base::tr("{1} is no address of a host in a network, but each host's own (loopback); give the "
                        "address that others reach the client by",
                        text));
    if (address >> 28 == 14)
        refuse(base::tr("{1} is no address of a host in a network, but a group's (multicast); give the "
                        "client's own address",
                        text));
    if (address >> 28 == 15)
        refuse(base::tr("{1} is no address of a host in a network, but reserved or everybody's; give the "
                        "client's own address",
                        text));
    check_is_a_hosts(text, networks);
    if (base::is_own_address(text))
        fail(Code::taken, base::tr("{1} is an address of this server", text));
}

void check_client_address(const std::string &address) {
    check_client_address(address, base::own_networks());
}

void check_in_own_network(const std::string &text, const std::vector<base::OwnNetwork> &networks) {
    const std::uint32_t address = number_of(text);
    if (networks.empty() || std::any_of(networks.begin(), networks.end(),
                                        [&](const auto &network) { return network.holds(address); }))
        return;
    fail(Code::unusable, base::tr("{1} is in no network of this server ({2}), so a client there is neither "
                                  "heard nor answered; give an address of such a network, or say with "
                                  "server= by which name clients of that network reach this server",
                                  text, in_words(networks)));
}

void check_client_ethernet(const std::string &text) {
    const ether_addr *ethernet = ether_aton(text.c_str());
    constexpr std::uint8_t nobody[6] = {};
    if (ethernet == nullptr || (ethernet->ether_addr_octet[0] & 1) != 0 ||
        std::memcmp(ethernet->ether_addr_octet, nobody, sizeof nobody) == 0)
        refuse(base::tr("{1} is no Ethernet address of a single host", text));
}

} // namespace hostadm::server
