// SPDX-License-Identifier: MIT
// What a booting client and its server say to each other, read off the wire frame by frame.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/checks/finding.hpp"

namespace hostadm::rehearsal {

using Time = std::chrono::duration<double>; // since some beginning

// A question of a client, or what it got.
struct Heard {
    enum class Kind { question, answer, failure } kind = Kind::question;
    server::Stage stage = server::Stage::address;
    std::string ethernet = {}, address = {}; // of the client; either may be unknown
    std::string topic = {};                  // what is asked for: the same in the question and in its answer
    std::string text = {};                   // in words
    bool is_usual = false;                   // a failure that says nothing is wrong
    bool ends_topic = true;                  // an answer that more follows does not
};

// How frames are framed.
enum class Framing { ethernet, cooked, cooked_2 };

class Wire {
public:
    explicit Wire(Framing framing) : framing_(framing) {}
    // Nothing: the frame is of no interest.
    std::optional<Heard> read(std::string_view frame);

private:
    struct Datagram {
        std::string ethernet, source, target;
        std::uint16_t from = 0, to = 0;
        std::string_view payload;
    };
    struct PendingCall {
        std::uint32_t program = 0, procedure = 0;
        server::Stage stage = server::Stage::name;
        std::string topic;
        bool handed_on = false;
    };
    struct Transfer {
        std::string file;
        std::size_t bytes = 0;
    };

    std::optional<Heard> read_reverse_arp(std::string_view payload) const;
    std::optional<Heard> read_packet(std::string_view packet, const std::string &ethernet);
    std::optional<Heard> read_datagram(const Datagram &datagram);
    std::optional<Heard> read_tftp_request(const Datagram &datagram);
    std::optional<Heard> read_tftp_block(const Datagram &datagram);
    std::optional<Heard> read_rpc(const Datagram &datagram);
    std::optional<Heard> read_call(const Datagram &datagram, std::string_view message);
    std::optional<Heard> read_reply(const Datagram &datagram, std::string_view message);

    Framing framing_;
    std::map<std::string, Transfer> transfers_;    // by the client's end, ADDRESS:PORT
    std::map<std::string, PendingCall> calls_;     // by the client's end and the number of the call
    std::map<std::string, std::string> ethernets_; // by address
};

} // namespace hostadm::rehearsal
