// SPDX-License-Identifier: MIT
// The packet filter's rules, and what they do with a packet.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hostadm::server {

// It stands for whatever port a client asks from.
inline constexpr std::uint16_t a_clients_port = 1023;

struct Packet {
    enum class Direction { in, out };
    Direction direction = Direction::in;
    std::string protocol;                      // "udp", "tcp", "rarp", "arp"
    std::string interface;                     // of this server
    std::uint32_t source = 0, destination = 0; // in host order
    std::uint16_t source_port = 0, port = 0;
    bool established = false; // belongs to an exchange that began the other way
    bool broadcast = false;
};

// Where a packet ends.
struct Dropped {
    std::string where;  // the rule, or the chain whose policy it is
    std::string what;   // what becomes of the packet
    std::string repair; // lets such packets pass
};

class PacketFilter {
public:
    struct Rules;

    PacketFilter() = default;
    explicit PacketFilter(std::shared_ptr<const Rules> rules) : rules_(std::move(rules)) {}

    // What surely drops a packet; nothing when no rule does, or when it depends on what cannot be told.
    std::optional<Dropped> drops(const Packet &packet) const;
    bool empty() const { return rules_ == nullptr; }
    std::string unread; // why the rules of this server could not be read; empty: they were, or there are none

private:
    std::shared_ptr<const Rules> rules_;
};

// What the iptables-save of a command prints: iptables-nft, whose rules are kept by nftables, or iptables-legacy.
struct SavedRules {
    std::string command, text;
};

// From the rules as nftables prints them for programs, and those of iptables.
PacketFilter parse_packet_filter(const std::string &json, const std::vector<SavedRules> &saved = {});
// Asks nftables and iptables, as far as they are installed and have rules.
PacketFilter read_packet_filter();
// The rules that are loaded when this server boots, tried in a network of their own; none, when none are or when they
// cannot be told from here.
PacketFilter read_packet_filter_at_boot();

} // namespace hostadm::server
