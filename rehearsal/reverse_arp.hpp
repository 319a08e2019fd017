// SPDX-License-Identifier: MIT
// Reverse ARP (RFC 903) as a client asks for it.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::rehearsal {

inline constexpr std::uint16_t reverse_arp_type = 0x8035; // of the Ethernet frame

struct ReverseArp {
    enum class Kind : std::uint16_t { request = 3, reply = 4 } kind = Kind::request;
    std::array<std::uint8_t, 6> sender_ethernet = {}, target_ethernet = {};
    std::array<std::uint8_t, 4> sender_address = {}, target_address = {};

    std::string bytes() const;
    // Nothing when they are no reverse ARP of Ethernet and IPv4.
    static std::optional<ReverseArp> read(std::string_view bytes);
};

std::string in_dots(const std::array<std::uint8_t, 4> &address);
std::string in_colons(const std::array<std::uint8_t, 6> &ethernet);

struct OwnAddressAnswer {
    std::string address, server, server_ethernet;
};

// Broadcasts the question from an interface until it is answered, and collects who else answers. Throws
// std::runtime_error when it cannot be asked.
std::vector<OwnAddressAnswer> ask_own_address(const std::string &interface,
                                              std::chrono::milliseconds patience, int tries);

} // namespace hostadm::rehearsal
