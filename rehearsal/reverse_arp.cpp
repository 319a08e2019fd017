// SPDX-License-Identifier: MIT
#include "rehearsal/reverse_arp.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/translation.hpp"

namespace hostadm::rehearsal {

namespace {

using Clock = std::chrono::steady_clock;

// As it lies on the wire, numbers in network order.
struct Packet {
    std::uint16_t hardware = htons(1); // Ethernet
    std::uint16_t protocol = htons(0x0800);
    std::uint8_t hardware_size = 6, protocol_size = 4;
    std::uint16_t operation = 0;
    std::uint8_t sender_ethernet[6] = {}, sender_address[4] = {}, target_ethernet[6] = {},
                 target_address[4] = {};
};
static_assert(sizeof(Packet) == 28);

[[noreturn]] void fail(const std::string &step) {
    throw std::runtime_error(base::tr("not possible: {1}: {2}", step, std::strerror(errno)));
}

template <typename From, typename To> void copy(const From &from, To &to) {
    std::copy(std::begin(from), std::end(from), std::begin(to));
}

} // namespace

std::string ReverseArp::bytes() const {
    Packet packet;
    packet.operation = htons(static_cast<std::uint16_t>(kind));
    copy(sender_ethernet, packet.sender_ethernet);
    copy(sender_address, packet.sender_address);
    copy(target_ethernet, packet.target_ethernet);
    copy(target_address, packet.target_address);
    return {reinterpret_cast<const char *>(&packet), sizeof packet};
}

std::optional<ReverseArp> ReverseArp::read(std::string_view bytes) {
    Packet packet;
    const Packet expected;
    if (bytes.size() < sizeof packet)
        return std::nullopt;
    std::memcpy(&packet, bytes.data(), sizeof packet);
    const std::uint16_t operation = ntohs(packet.operation);
    if (packet.hardware != expected.hardware || packet.protocol != expected.protocol ||
        packet.hardware_size != expected.hardware_size || packet.protocol_size != expected.protocol_size ||
        (operation != 3 && operation != 4))
        return std::nullopt;
    ReverseArp read;
    read.kind = static_cast<Kind>(operation);
    copy(packet.sender_ethernet, read.sender_ethernet);
    copy(packet.sender_address, read.sender_address);
    copy(packet.target_ethernet, read.target_ethernet);
    copy(packet.target_address, read.target_address);
    return read;
}

std::string in_dots(const std::array<std::uint8_t, 4> &address) {
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address[0], address[1], address[2], address[3]);
    return text;
}

std::string in_colons(const std::array<std::uint8_t, 6> &ethernet) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", ethernet[0], ethernet[1], ethernet[2],
                  ethernet[3], ethernet[4], ethernet[5]);
    return text;
}

std::vector<OwnAddressAnswer> ask_own_address(const std::string &interface,
                                              std::chrono::milliseconds patience, int tries) {
    const base::Descriptor wire(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(reverse_arp_type)));
    if (!wire.is_open())
        fail(base::tr("make a packet socket"));
    ifreq request{};
    interface.copy(request.ifr_name, sizeof request.ifr_name - 1);
    if (ioctl(wire.get(), SIOCGIFHWADDR, &request) != 0)
        fail(base::tr("read the Ethernet address of {1}", interface));
    ReverseArp question;
    std::copy_n(request.ifr_hwaddr.sa_data, question.sender_ethernet.size(),
                question.sender_ethernet.begin());
    question.target_ethernet = question.sender_ethernet;

    sockaddr_ll here{};
    here.sll_family = AF_PACKET;
    here.sll_protocol = htons(reverse_arp_type);
    here.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (bind(wire.get(), reinterpret_cast<const sockaddr *>(&here), sizeof here) != 0)
        fail(base::tr("listen on {1}", interface));
    sockaddr_ll everybody = here;
    everybody.sll_halen = 6;
    std::fill_n(everybody.sll_addr, 6, 0xff);

    std::vector<OwnAddressAnswer> answers;
    const std::string bytes = question.bytes();
    for (int asked = 0; asked < tries && answers.empty(); ++asked) {
        if (sendto(wire.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&everybody),
                   sizeof everybody) < 0)
            fail(base::tr("send on {1}", interface));
        auto end = Clock::now() + patience;
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
            pollfd readable{wire.get(), POLLIN, 0};
            if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0)
                break;
            char buffer[256];
            const ssize_t length = recv(wire.get(), buffer, sizeof buffer, 0);
            const auto answer =
                length < 0 ? std::nullopt : ReverseArp::read({buffer, static_cast<std::size_t>(length)});
            if (!answer || answer->kind != ReverseArp::Kind::reply ||
                answer->target_ethernet != question.sender_ethernet)
                continue;
            answers.push_back({in_dots(answer->target_address), in_dots(answer->sender_address),
                               in_colons(answer->sender_ethernet)});
            // A second daemon that answers otherwise does so at once.
            end = std::min(end, Clock::now() + std::chrono::milliseconds(10));
        }
    }
    return answers;
}

} // namespace hostadm::rehearsal
