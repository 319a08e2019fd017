// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/processes.hpp"
#include "support/scratch.hpp"

using namespace hostadm::base;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ProcessTable : public testing::Test {
protected:
    void add(const std::string &name, const std::string &stat, const std::string &command_line) {
        std::filesystem::create_directory(scratch_.path(name));
        scratch_.write(name + "/stat", stat);
        scratch_.write(name + "/cmdline", command_line);
    }
    std::vector<Process> read() { return live_processes(scratch_.path()); }

    tests::Scratch scratch_;
};

using namespace std::string_literals;

} // namespace

TEST_F(ProcessTable, ListsNameAndArguments) {
    add("7", "7 (in.rarpd) S 1", "/usr/sbin/in.rarpd\0-a\0"s);
    const auto found = read();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].pid, 7);
    EXPECT_EQ(found[0].short_name, "in.rarpd");
    EXPECT_THAT(found[0].arguments, ElementsAre("/usr/sbin/in.rarpd", "-a"));
    EXPECT_EQ(found[0].owner, geteuid());
}

TEST_F(ProcessTable, KeepsAnEmptyArgumentAndBracketsInAName) {
    add("8", "8 (a) R (b) S 1", "sh\0\0x\0"s);
    const auto found = read();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].short_name, "a) R (b");
    EXPECT_THAT(found[0].arguments, ElementsAre("sh", "", "x"));
}

TEST_F(ProcessTable, LeavesOutTheDefunctAndThoseThatEnd) {
    add("9", "9 (gone) Z 1", "");
    add("10", "", "");
    add("self", "11 (link) S 1", "x\0"s);
    EXPECT_THAT(read(), IsEmpty());
}

TEST_F(ProcessTable, HasTheDefunctWhereAllAreWanted) {
    add("9", "9 (gone) Z 1", "");
    add("10", "10 (held) T 1", "held\0"s);
    const auto found = all_processes(scratch_.path());
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].state + found[1].state, 'Z' + 'T');
}

TEST_F(ProcessTable, OfTheKernelHasThreadsWithoutArguments) {
    add("12", "12 (nfsd) S 1", "");
    ASSERT_EQ(read().size(), 1u);
    EXPECT_THAT(read()[0].arguments, IsEmpty());
}

TEST(Processes, HoldThisOneWhichSharesItsOwnRoot) {
    bool found = false;
    for (const Process &process : live_processes())
        found = found || process.pid == getpid();
    EXPECT_TRUE(found);
    EXPECT_TRUE(shares_root(getpid()));
    EXPECT_FALSE(shares_root(0));
}

TEST(Processes, OfATableThatIsMissingAreNone) {
    EXPECT_THAT(live_processes("/no/such/table"), IsEmpty());
}

TEST(ProcessStat, KeepsBracketsBlanksAndNewlinesInAName) {
    const auto stat = parse_process_stat("42 (a) R (b\nc) S 1 42 42 0");
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->pid, 42);
    EXPECT_EQ(stat->name, "a) R (b\nc");
    EXPECT_EQ(stat->state, 'S');
}

TEST(ProcessStat, RefusesOtherText) {
    for (const char *text :
         {"", "cpu  1 2 3", "42", "42 (x", "42 (x)", "42 (x) ", "x (y) S", "0 (x) S", "-1 (x) S"})
        EXPECT_FALSE(parse_process_stat(text)) << text;
}

TEST(StartOfAProcess, LiesBetweenTheStartOfItsParentAndNow) {
    const auto parent = start_of(getppid()), own = start_of(getpid());
    ASSERT_TRUE(parent && own);
    constexpr std::chrono::milliseconds tick(20); // of the kernel's count
    EXPECT_LE(*parent, *own + tick);
    EXPECT_LE(*own, std::chrono::system_clock::now() + tick);
    EXPECT_GT(*own, std::chrono::system_clock::now() - std::chrono::hours(1));
}

TEST(StartOfAProcess, IsUnknownOfNone) {
    EXPECT_FALSE(start_of(-1));
}
