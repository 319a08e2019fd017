// SPDX-License-Identifier: MIT
// Calls of remote procedures by UDP, each with a time limit of its own: the library's wait a minute for a port
// mapper that hangs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <rpc/rpc.h>
#include <string>
#include <vector>

namespace hostadm::rehearsal {

inline constexpr std::uint32_t port_mapper_program = 100000;
inline constexpr std::uint32_t nfs_program = 100003;
inline constexpr std::uint32_t mount_program = 100005;
inline constexpr std::uint32_t bootparams_program = 100026;
inline constexpr std::uint16_t port_mapper_port = 111;

struct Call {
    std::string address;
    std::uint16_t port = 0;
    std::uint32_t program = 0, version = 0, procedure = 0;
    std::vector<char> arguments = {};
    std::string interface = {}; // to be sent from this one, also by broadcast
    std::chrono::milliseconds patience{300};
    int tries = 3;
    bool from_anywhere = false; // the answer may come from another port or host, as a question handed on does
};

struct Reply {
    enum class Kind { results, refused, silence, unreachable } kind = Kind::silence;
    std::vector<char> results = {};
    std::string from = {};
    std::string reason = {}; // of a refusal

    bool well() const { return kind == Kind::results; }
};

Reply call(const Call &call);

// Encodes or decodes with functions of the system's RPC library.
std::vector<char> encoded(const std::function<bool(XDR *)> &encode);
bool decode(const std::vector<char> &bytes, const std::function<bool(XDR *)> &decode);

// The port of a program, 0 when it is not registered; nothing when the port mapper does not answer.
std::optional<std::uint16_t> registered_port(const std::string &address, std::uint32_t program,
                                             std::uint32_t version, std::uint32_t protocol);
// Whether the program itself answers there, by UDP.
bool answers(const std::string &address, std::uint32_t program, std::uint32_t version);

// What the mount daemon says that it exports: paths, each with the clients that may mount it, none for all.
struct Exported {
    std::string path;
    std::vector<std::string> clients;
    bool operator==(const Exported &) const = default;
};
std::optional<std::vector<Exported>> export_list(const std::string &address);
// The list in one line, in an order that does not change.
std::string in_one_line(std::vector<Exported> list);

} // namespace hostadm::rehearsal
