// SPDX-License-Identifier: MIT
// DHCP (RFC 2131) as the firmware of a PC asks for its address and for what to boot.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace hostadm::rehearsal {

// Kinds of firmware, as they tell of themselves (RFC 4578).
enum class ClientSystem : std::uint16_t { bios = 0, uefi = 7 };

struct DhcpAnswer {
    std::string address;     // the client's
    std::string server;      // who answers
    std::string boot_server; // that gives the boot file
    std::string boot_file, router;
};

// The question of a client that has no address yet.
std::string dhcp_question(const std::array<std::uint8_t, 6> &ethernet, std::uint32_t number,
                          ClientSystem system);
// Nothing: it is no answer to the question of this number.
std::optional<DhcpAnswer> read_dhcp_answer(std::string_view message, std::uint32_t number);

// Broadcasts the question from an interface until it is answered. Throws std::runtime_error when it cannot be asked.
std::optional<DhcpAnswer> ask_dhcp(const std::string &interface, ClientSystem system,
                                   std::chrono::milliseconds patience, int tries);

} // namespace hostadm::rehearsal
