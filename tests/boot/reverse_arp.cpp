// SPDX-License-Identifier: MIT
// reverse_arp INTERFACE [MILLISECONDS [TRIES]]: asks, as a client that has just been switched on, for the
// address of this interface, and prints "address A from server S". Exit status: 0 answered, 1 no answer, 2
// cannot ask.
#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint16_t reverse_arp_type = 0x8035;
constexpr uint16_t request = 3;
constexpr uint16_t reply = 4;

// RFC 903 for Ethernet and IPv4; every field lies on its own boundary, so nothing is padded.
struct Packet {
    uint16_t hardware = htons(1);
    uint16_t protocol = htons(0x0800);
    uint8_t hardware_length = 6;
    uint8_t protocol_length = 4;
    uint16_t operation = htons(request);
    uint8_t sender_hardware[6] = {};
    uint8_t sender_address[4] = {};
    uint8_t target_hardware[6] = {};
    uint8_t target_address[4] = {};
};
static_assert(sizeof(Packet) == 28);

int complain(const char *what) {
    std::perror(what);
    return 2;
}

int ask(const char *interface, std::chrono::milliseconds patience, int tries) {
    const int wire = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(reverse_arp_type));
    if (wire < 0)
        return complain("socket");
    ifreq link = {};
    std::strncpy(link.ifr_name, interface, IFNAMSIZ - 1);
    if (ioctl(wire, SIOCGIFHWADDR, &link) != 0)
        return complain(interface);
    Packet question;
    std::memcpy(question.sender_hardware, link.ifr_hwaddr.sa_data, 6);
    std::memcpy(question.target_hardware, link.ifr_hwaddr.sa_data, 6);

    sockaddr_ll place = {};
    place.sll_family = AF_PACKET;
    place.sll_protocol = htons(reverse_arp_type);
    place.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    if (bind(wire, reinterpret_cast<const sockaddr *>(&place), sizeof place) != 0)
        return complain("bind");
    place.sll_halen = 6;
    std::memset(place.sll_addr, 0xff, 6); // to everybody

    using Clock = std::chrono::steady_clock;
    for (int number = 0; number < tries; ++number) {
        if (sendto(wire, &question, sizeof question, 0, reinterpret_cast<const sockaddr *>(&place),
                   sizeof place) < 0)
            return complain("sendto");
        const auto end = Clock::now() + patience;
        for (auto left = patience; left.count() > 0;
             left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now())) {
            pollfd readable = {wire, POLLIN, 0};
            if (poll(&readable, 1, static_cast<int>(left.count())) <= 0)
                break;
            Packet answer;
            if (recv(wire, &answer, sizeof answer, 0) < static_cast<ssize_t>(sizeof answer) ||
                answer.operation != htons(reply) ||
                std::memcmp(answer.target_hardware, question.sender_hardware, 6) != 0)
                continue;
            char own[INET_ADDRSTRLEN];
            char server[INET_ADDRSTRLEN];
            inet_ntop(AF_INET, answer.target_address, own, sizeof own);
            inet_ntop(AF_INET, answer.sender_address, server, sizeof server);
            std::printf("address %s from server %s\n", own, server);
            return 0;
        }
    }
    std::fputs("no answer\n", stderr);
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fputs("usage: reverse_arp INTERFACE [MILLISECONDS [TRIES]]\n", stderr);
        return 2;
    }
    return ask(argv[1], std::chrono::milliseconds(argc > 2 ? std::atoi(argv[2]) : 1000),
               argc > 3 ? std::atoi(argv[3]) : 3);
}
