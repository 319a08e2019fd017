// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <string>

#include "rehearsal/dhcp.hpp"

namespace {

using namespace hostadm::rehearsal;

constexpr std::uint32_t number = 0x01020304;

std::string answer_with(const std::string &options, const std::string &file = "grub/i386-pc/core.0") {
    std::string message(236, '\0');
    message[0] = 2;
    message.replace(4, 4, "\x01\x02\x03\x04");
    message.replace(16, 4, "\x0a\x01\x02\x03");
    message.replace(20, 4, "\x0a\x01\x02\x01");
    message.replace(108, file.size(), file);
    return message + "\x63\x82\x53\x63" + options;
}

const std::string offer = "\x35\x01\x02", server = "\x36\x04\x0a\x01\x02\x01";

TEST(DhcpQuestion, TellsWhoAsksAndWhichFirmwareItIs) {
    const std::string question = dhcp_question({8, 0, 0x20, 0xaa, 0xbb, 1}, number, ClientSystem::uefi);
    EXPECT_EQ(question.substr(4, 4), std::string("\x01\x02\x03\x04"));
    EXPECT_EQ(question.substr(28, 6), std::string("\x08\x00\x20\xaa\xbb\x01", 6));
    EXPECT_NE(question.find(std::string("\x5d\x02\x00\x07", 4), 240), question.npos);
    EXPECT_EQ(question.back(), '\xff');
}

TEST(DhcpAnswer, IsReadWithItsBootFile) {
    const auto read = read_dhcp_answer(answer_with(offer + server + "\xff"), number);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->address, "10.1.2.3");
    EXPECT_EQ(read->server, "10.1.2.1");
    EXPECT_EQ(read->boot_server, "10.1.2.1");
    EXPECT_EQ(read->boot_file, "grub/i386-pc/core.0");
    EXPECT_EQ(read->router, "");
}

TEST(DhcpAnswer, MayTellItsBootFileByAnOption) {
    const auto read = read_dhcp_answer(answer_with(offer +
                                                       "\x43\x04"
                                                       "core" +
                                                       "\xff",
                                                   ""),
                                       number);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->boot_file, "core");
}

TEST(DhcpAnswer, OfAnotherKindOrNumberOrCutOffIsNone) {
    const std::string good = answer_with(offer + server + "\xff");
    EXPECT_FALSE(read_dhcp_answer(good, number + 1));
    EXPECT_FALSE(read_dhcp_answer(answer_with("\x35\x01\x06\xff"), number));
    EXPECT_FALSE(read_dhcp_answer("", number));
    for (std::size_t size = 0; size < 243; ++size)
        EXPECT_FALSE(read_dhcp_answer(good.substr(0, size), number)) << size;
    for (std::size_t size = 243; size <= good.size(); ++size)
        read_dhcp_answer(good.substr(0, size), number); // reads nothing that is not there
}

} // namespace
