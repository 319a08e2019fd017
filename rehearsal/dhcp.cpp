// SPDX-License-Identifier: MIT
#include "rehearsal/dhcp.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/descriptor.hpp"
#include "base/translation.hpp"

namespace hostadm::rehearsal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t server_port = 67, client_port = 68, ip_type = 0x0800;
constexpr std::string_view magic = "\x63\x82\x53\x63";
// Where fields lie in a message; the options begin behind the last.
constexpr std::size_t number_place = 4, address_place = 16, next_server_place = 20, ethernet_place = 28,
                      file_place = 108, file_size = 128, magic_place = 236;

enum Option : std::uint8_t {
    router_option = 3,
    type_option = 53,
    server_option = 54,
    wanted_option = 55,
    class_option = 60,
    file_option = 67,
    system_option = 93,
    pad = 0,
    end = 255
};

[[noreturn]] void fail(const std::string &step) {
    throw std::runtime_error(base::tr("not possible: {1}: {2}", step, std::strerror(errno)));
}

std::string two_bytes(unsigned number) {
    return {static_cast<char>(number >> 8 & 0xff), static_cast<char>(number & 0xff)};
}

std::string four_bytes(std::uint32_t number) {
    return two_bytes(number >> 16) + two_bytes(number & 0xffff);
}

unsigned number_of(std::string_view two) {
    return static_cast<unsigned>(static_cast<std::uint8_t>(two[0])) << 8 | static_cast<std::uint8_t>(two[1]);
}

std::string in_dots(std::string_view four) {
    std::string text;
    for (const char byte : four.substr(0, 4))
        text += (text.empty() ? "" : ".") + std::to_string(static_cast<std::uint8_t>(byte));
    return text;
}

std::string option(Option name, const std::string &value) {
    return std::string{static_cast<char>(name), static_cast<char>(value.size())} + value;
}

// The value of an option; empty: it is not there.
std::string_view option_in(std::string_view options, Option name) {
    while (!options.empty() && static_cast<std::uint8_t>(options[0]) != end) {
        if (options[0] == pad) {
            options.remove_prefix(1);
            continue;
        }
        if (options.size() < 2)
            return {};
        const std::size_t size = static_cast<std::uint8_t>(options[1]);
        if (options.size() < 2 + size)
            return {};
        if (static_cast<std::uint8_t>(options[0]) == name)
            return options.substr(2, size);
        options.remove_prefix(2 + size);
    }
    return {};
}

unsigned checksum(std::string_view header) {
    unsigned sum = 0;
    for (std::size_t i = 0; i + 1 < header.size(); i += 2)
        sum += number_of(header.substr(i));
    while (sum >> 16 != 0)
        sum = (sum & 0xffff) + (sum >> 16);
    return ~sum & 0xffff;
}

// In IP and UDP, from nobody to everybody.
std::string datagram(const std::string &message) {
    constexpr unsigned ip_size = 20, udp_size = 8;
    const auto size = static_cast<unsigned>(message.size());
    std::string ip = std::string("\x45\x00", 2) + two_bytes(ip_size + udp_size + size) +
                     std::string(4, '\0') + "\x40\x11" + std::string(2, '\0') + four_bytes(INADDR_ANY) +
                     four_bytes(INADDR_BROADCAST);
    ip.replace(10, 2, two_bytes(checksum(ip)));
    return ip + two_bytes(client_port) + two_bytes(server_port) + two_bytes(udp_size + size) + two_bytes(0) +
           message;
}

// The message in an IP packet for a client of DHCP; empty: it is another.
std::string_view message_in(std::string_view packet) {
    constexpr std::size_t least = 20, udp_size = 8;
    constexpr char udp = 17;
    if (packet.size() < least || packet[9] != udp)
        return {};
    const std::size_t ip_size = (static_cast<std::uint8_t>(packet[0]) & 0xfU) * 4;
    if (ip_size < least || packet.size() < ip_size + udp_size ||
        number_of(packet.substr(ip_size + 2)) != client_port)
        return {};
    return packet.substr(ip_size + udp_size);
}

class Wire {
public:
    explicit Wire(const std::string &interface)
        : socket_(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ip_type))) {
        if (!socket_.is_open())
            fail(base::tr("make a packet socket"));
        ifreq request{};
        interface.copy(request.ifr_name, sizeof request.ifr_name - 1);
        if (ioctl(socket_.get(), SIOCGIFHWADDR, &request) != 0)
            fail(base::tr("read the Ethernet address of {1}", interface));
        std::copy_n(request.ifr_hwaddr.sa_data, ethernet.size(), ethernet.begin());
        place_.sll_family = AF_PACKET;
        place_.sll_protocol = htons(ip_type);
        place_.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
        if (bind(socket_.get(), reinterpret_cast<const sockaddr *>(&place_), sizeof place_) != 0)
            fail(base::tr("listen on {1}", interface));
    }

    void broadcast(const std::string &packet) const {
        sockaddr_ll everybody = place_;
        everybody.sll_halen = 6;
        std::fill_n(everybody.sll_addr, 6, 0xff);
        if (sendto(socket_.get(), packet.data(), packet.size(), 0,
                   reinterpret_cast<const sockaddr *>(&everybody), sizeof everybody) < 0)
            fail(base::tr("send a question for an address"));
    }

    // Empty: nothing came until then.
    std::string receive(Clock::time_point until) const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd readable{socket_.get(), POLLIN, 0};
        if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0)
            return {};
        std::string packet(2048, '\0');
        const ssize_t size = recv(socket_.get(), packet.data(), packet.size(), 0);
        packet.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return packet;
    }

    std::array<std::uint8_t, 6> ethernet = {};

private:
    base::Descriptor socket_;
    sockaddr_ll place_{};
};

} // namespace

std::string dhcp_question(const std::array<std::uint8_t, 6> &ethernet, std::uint32_t number,
                          ClientSystem system) {
    constexpr char request = 1, by_ethernet = 1, ethernet_size = 6;
    constexpr unsigned answer_by_broadcast = 0x8000;
    std::string message(magic_place, '\0');
    message[0] = request;
    message[1] = by_ethernet;
    message[2] = ethernet_size;
    message.replace(number_place, 4, four_bytes(number));
    message.replace(10, 2, two_bytes(answer_by_broadcast));
    std::copy(ethernet.begin(), ethernet.end(), message.begin() + ethernet_place);
    message += magic;
    message += option(type_option, "\x01"); // who can serve me?
    message += option(system_option, two_bytes(static_cast<unsigned>(system)));
    message += option(class_option, "PXEClient");
    message += option(wanted_option, {1, router_option, 66, file_option});
    return message + static_cast<char>(end);
}

std::optional<DhcpAnswer> read_dhcp_answer(std::string_view message, std::uint32_t number) {
    constexpr char reply = 2;
    constexpr std::string_view offer = "\x02";
    if (message.size() < magic_place + magic.size() || message[0] != reply ||
        message.substr(number_place, 4) != four_bytes(number) ||
        message.substr(magic_place, magic.size()) != magic)
        return std::nullopt;
    const std::string_view options = message.substr(magic_place + magic.size());
    if (option_in(options, type_option) != offer)
        return std::nullopt;
    const std::string_view file = message.substr(file_place, file_size);
    DhcpAnswer answer{.address = in_dots(message.substr(address_place, 4)),
                      .server = in_dots(option_in(options, server_option)),
                      .boot_server = in_dots(message.substr(next_server_place, 4)),
                      .boot_file = std::string(file.substr(0, file.find('\0'))),
                      .router = in_dots(option_in(options, router_option))};
    if (answer.boot_file.empty())
        answer.boot_file = option_in(options, file_option);
    return answer;
}

std::optional<DhcpAnswer> ask_dhcp(const std::string &interface, ClientSystem system,
                                   std::chrono::milliseconds patience, int tries) {
    const Wire wire(interface);
    const auto number = static_cast<std::uint32_t>(Clock::now().time_since_epoch().count());
    const std::string question = datagram(dhcp_question(wire.ethernet, number, system));
    for (int asked = 0; asked < tries; ++asked) {
        wire.broadcast(question);
        const auto until = Clock::now() + patience;
        for (std::string packet = wire.receive(until); !packet.empty(); packet = wire.receive(until))
            if (auto answer = read_dhcp_answer(message_in(packet), number))
                return answer;
    }
    return std::nullopt;
}

} // namespace hostadm::rehearsal
