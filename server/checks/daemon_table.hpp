// SPDX-License-Identifier: MIT
// The daemons that a client meets while it boots: their processes, options and sockets, and what they answer.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/processes.hpp"

namespace hostadm::server {

struct Socket {
    enum class Kind { udp, tcp, packet };
    Kind kind = Kind::udp;
    std::uint32_t address = 0; // in host order; 0: any
    std::uint16_t port = 0;    // of packet: the Ethernet protocol
    bool six = false;          // IPv6; one that is bound to any address takes IPv4 as well
    unsigned interface = 0;    // of packet: its index, 0 any
};

struct Daemon {
    base::Process process;
    std::string program; // last part of the name that it was started by
    std::vector<Socket> sockets;
    bool other_network = false; // it lives in a network name space of its own

    bool defunct() const { return process.state == 'Z'; }
    bool stopped() const { return process.state == 'T' || process.state == 't'; }
    // A short option, alone or among others in one word, that takes no value.
    bool has_flag(char flag) const;
    // The value of an option: "-b VALUE", "-bVALUE", "--long VALUE", "--long=VALUE"; the last one counts.
    std::optional<std::string> value_of(char flag, std::string_view long_name = {}) const;
    bool has_long(std::string_view name) const;
};

struct DaemonTable {
    std::vector<Daemon> daemons; // of the programs that matter here
    std::vector<Socket> sockets; // of every process, and of the kernel
    bool sockets_known = false;  // those of a process can be seen

    // All that bear one of these names, the living before the defunct.
    std::vector<const Daemon *> named(std::initializer_list<std::string_view> programs) const;
    // Whether the kernel serves NFS: by threads without a command line, whatever process watches over them.
    bool kernel_serves_nfs() const;
    // Whether anybody receives what comes for this port at an address.
    bool is_open(Socket::Kind kind, std::uint16_t port, std::uint32_t address) const;
    std::vector<const Socket *> on_port(Socket::Kind kind, std::uint16_t port) const;
};
DaemonTable read_daemons(const std::string &proc = "/proc");

} // namespace hostadm::server
