// SPDX-License-Identifier: MIT
// What the running daemons answer on this host itself, each asked once and never waited for longer than a second.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hostadm::server {

struct Registration {
    std::uint32_t program = 0, version = 0;
    bool tcp = false;
    std::uint16_t port = 0;
};

struct RpcAnswers {
    enum class Mapper { answered, refused, silent };
    Mapper mapper = Mapper::refused;
    std::vector<Registration> registrations;

    std::optional<std::uint16_t> port_of(std::uint32_t program, std::uint32_t version, bool tcp) const;
    bool has(std::uint32_t program) const;
};
RpcAnswers ask_port_mapper();

enum class Answer { answered, refused, silent };
// The null procedure of a program, by UDP or TCP at its port.
Answer ask_null_procedure(std::uint32_t program, std::uint32_t version, bool tcp, std::uint16_t port);

// The first block of a file by TFTP, asked at an address of this host.
struct TftpAnswer {
    Answer answer = Answer::silent;
    std::string block; // up to 512 bytes
    std::string error; // what the daemon says, when it has no such file
};
TftpAnswer ask_tftp(std::uint32_t address, const std::string &name);

} // namespace hostadm::server
