// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "rehearsal/reverse_arp.hpp"
#include "rehearsal/wire.hpp"

namespace {

using namespace hostadm::rehearsal;
using testing::HasSubstr;

constexpr const char *clients_ethernet = "08:00:20:aa:bb:01";

std::string bytes(std::initializer_list<int> numbers) {
    std::string text;
    for (const int number : numbers)
        text += static_cast<char>(number);
    return text;
}

std::string frame(int type, const std::string &payload) {
    return std::string(6, '\xff') + bytes({8, 0, 0x20, 0xaa, 0xbb, 1}) + bytes({type >> 8, type & 0xff}) +
           payload;
}

// From 192.168.1.10:2000 to 192.168.1.1:PORT, or back.
std::string datagram(int from, int to, const std::string &payload, bool back = false) {
    const int length = 28 + static_cast<int>(payload.size());
    const std::string client = bytes({192, 168, 1, 10}), server = bytes({192, 168, 1, 1});
    return frame(0x0800, bytes({0x45, 0, length >> 8, length & 0xff, 0, 0, 0, 0, 64, 17, 0, 0}) +
                             (back ? server + client : client + server) +
                             bytes({from >> 8, from & 0xff, to >> 8, to & 0xff, (length - 20) >> 8,
                                    (length - 20) & 0xff, 0, 0}) +
                             payload);
}

std::string words(std::initializer_list<unsigned int> numbers) {
    std::string text;
    for (const unsigned int number : numbers)
        text += bytes({static_cast<int>(number >> 24), static_cast<int>(number >> 16 & 0xff),
                       static_cast<int>(number >> 8 & 0xff), static_cast<int>(number & 0xff)});
    return text;
}

std::string xdr_text(const std::string &text) {
    return words({static_cast<unsigned int>(text.size())}) + text +
           std::string((4 - text.size() % 4) % 4, '\0');
}

std::string reverse_arp(ReverseArp::Kind kind) {
    ReverseArp packet{.kind = kind};
    packet.target_ethernet = {8, 0, 0x20, 0xaa, 0xbb, 1};
    if (kind == ReverseArp::Kind::reply) {
        packet.target_address = {192, 168, 1, 10};
        packet.sender_address = {192, 168, 1, 1};
    }
    return frame(reverse_arp_type, packet.bytes());
}

class WireTest : public testing::Test {
protected:
    std::string read(const std::string &text) {
        const auto heard = wire_.read(text);
        return heard ? heard->text : "";
    }
    Wire wire_{Framing::ethernet};
};

TEST_F(WireTest, ReverseArpIsAQuestionAndAnAnswer) {
    const auto asked = wire_.read(reverse_arp(ReverseArp::Kind::request));
    ASSERT_TRUE(asked);
    EXPECT_EQ(asked->kind, Heard::Kind::question);
    EXPECT_EQ(asked->ethernet, clients_ethernet);
    const auto answered = wire_.read(reverse_arp(ReverseArp::Kind::reply));
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->kind, Heard::Kind::answer);
    EXPECT_EQ(answered->topic, asked->topic);
    EXPECT_EQ(answered->text, "gets the address 192.168.1.10 from 192.168.1.1");
}

TEST_F(WireTest, ATransferIsToldAtItsEndWithItsSize) {
    const std::string name("C0A8010A\0octet\0", 15);
    EXPECT_EQ(read(datagram(2000, 69, bytes({0, 1}) + name)), "asks for the file C0A8010A (TFTP)");
    EXPECT_EQ(read(datagram(5000, 2000, bytes({0, 3, 0, 1}) + std::string(512, 'x'), true)),
              "is sent the file C0A8010A");
    EXPECT_EQ(read(datagram(5000, 2000, bytes({0, 3, 0, 2}) + std::string(100, 'x'), true)),
              "has the file C0A8010A, 612 bytes");
}

TEST_F(WireTest, ARefusedTransferIsToldWithTheReason) {
    read(datagram(2000, 69, bytes({0, 1}) + std::string("C0A8010A\0octet\0", 15)));
    EXPECT_EQ(read(datagram(5000, 2000, bytes({0, 5, 0, 1}) + std::string("File not found\0", 15), true)),
              "is refused the file C0A8010A: File not found");
}

TEST_F(WireTest, ANameIsAskedThroughThePortMapper) {
    // Number, call, RPC 2, the port mapper's procedure 5, no credentials; program, version, procedure, arguments.
    EXPECT_THAT(read(datagram(2000, 111,
                              words({7, 0, 2, 100000, 2, 5, 0, 0, 0, 0, 100026, 1, 1, 20}) +
                                  words({1, 192, 168, 1, 10}))),
                HasSubstr("asks for its name"));
    EXPECT_EQ(read(datagram(5001, 2000,
                            words({7, 1, 0, 0, 0, 0, 5002, 44}) + xdr_text("client1") + xdr_text("(none)") +
                                words({1, 192, 168, 1, 1}),
                            true)),
              "learns that it is client1, router 192.168.1.1");
}

TEST_F(WireTest, AMountThatIsDeniedIsAFailure) {
    EXPECT_EQ(read(datagram(700, 900,
                            words({8, 0, 2, 100005, 3, 1, 0, 0, 0, 0}) + xdr_text("/export/root/client1"))),
              "asks to mount /export/root/client1");
    const auto heard = wire_.read(datagram(900, 700, words({8, 1, 0, 0, 0, 0, 13}), true));
    ASSERT_TRUE(heard);
    EXPECT_EQ(heard->kind, Heard::Kind::failure);
    EXPECT_THAT(heard->text, HasSubstr("access denied"));
}

TEST_F(WireTest, NothingThatIsCutOffHarms) {
    const std::string whole = datagram(2000, 111,
                                       words({7, 0, 2, 100000, 2, 5, 0, 0, 0, 0, 100026, 1, 2, 20}) +
                                           xdr_text("client1") + xdr_text("root"));
    for (std::size_t length = 0; length <= whole.size(); ++length)
        read(whole.substr(0, length));
    const std::string transfer = datagram(2000, 69, bytes({0, 1}) + std::string("C0A8010A\0octet\0", 15));
    for (std::size_t length = 0; length <= transfer.size(); ++length)
        read(transfer.substr(0, length));
    const std::string request = reverse_arp(ReverseArp::Kind::request);
    for (std::size_t length = 0; length < request.size(); ++length)
        EXPECT_EQ(read(request.substr(0, length)), "");
}

TEST_F(WireTest, AReplyToNobodysQuestionIsOfNoInterest) {
    EXPECT_EQ(read(datagram(900, 700, words({8, 1, 0, 0, 0, 0, 13}), true)), "");
}

} // namespace
