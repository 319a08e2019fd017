// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "rehearsal/boot_log.hpp"

namespace {

using namespace hostadm::rehearsal;
using hostadm::server::Stage;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char *known_ethernet = "08:00:20:aa:bb:01";

class BootLogTest : public testing::Test {
protected:
    BootLog log(const std::string &only = "") {
        return BootLog({.name_by_ethernet =
                            [](const std::string &ethernet) {
                                return ethernet == known_ethernet ? std::string("client1") : std::string();
                            },
                        .name_by_address = [](const std::string &) { return std::string(); },
                        .why_silent = [this](const std::string &, Stage) { return why_; }},
                       only, [this](Time, const std::string &line) { lines_.push_back(line); });
    }
    static Heard question(const std::string &ethernet = known_ethernet) {
        return {.kind = Heard::Kind::question,
                .stage = Stage::address,
                .ethernet = ethernet,
                .address = {},
                .topic = "its address",
                .text = "asks for its address"};
    }
    static Heard answer() {
        Heard heard = question();
        heard.kind = Heard::Kind::answer;
        heard.text = "gets its address";
        return heard;
    }

    std::string why_;
    std::vector<std::string> lines_;
};

TEST_F(BootLogTest, AQuestionAndItsAnswerAreALineEach) {
    BootLog boots = log();
    boots.hear(Time(1), question());
    boots.hear(Time(1.1), answer());
    boots.look_at_silences(Time(9));
    EXPECT_THAT(lines_, ElementsAre("client1 asks for its address", "client1 gets its address"));
}

TEST_F(BootLogTest, ASilenceIsToldOnceAndWithItsMeaning) {
    BootLog boots = log();
    why_ = "/etc/ethers: no line";
    boots.hear(Time(1), question());
    boots.hear(Time(2), question());
    boots.look_at_silences(Time(2));
    EXPECT_EQ(lines_.size(), 1U);
    boots.look_at_silences(Time(3));
    boots.look_at_silences(Time(4));
    ASSERT_EQ(lines_.size(), 2U);
    EXPECT_EQ(lines_.back(),
              "client1 gets no answer: it asked for its address 2 times; /etc/ethers: no line");
}

TEST_F(BootLogTest, AnUnknownOneIsToldWithTheCommandThatAddsIt) {
    BootLog boots = log();
    boots.hear(Time(1), question("08:00:20:00:00:42"));
    ASSERT_EQ(lines_.size(), 2U);
    EXPECT_THAT(lines_.front(), HasSubstr("hostadm run client/add_diskless"));
    EXPECT_THAT(lines_.front(), HasSubstr("ethernet=08:00:20:00:00:42"));
}

TEST_F(BootLogTest, OfOneClientNothingIsToldOfAnother) {
    BootLog boots = log("client2");
    boots.hear(Time(1), question());
    EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(BootLogTest, TheEndTellsHowFarEachCame) {
    BootLog boots = log();
    boots.tell_end(Time(1));
    EXPECT_THAT(lines_, ElementsAre("nobody asked for anything"));
    boots.hear(Time(1), answer());
    boots.tell_end(Time(2));
    EXPECT_THAT(lines_.back(), HasSubstr("came as far as: " + std::string(name_of(Stage::address))));
    EXPECT_FALSE(boots.somebody_started());
}

} // namespace
