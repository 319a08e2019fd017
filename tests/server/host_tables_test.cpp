// SPDX-License-Identifier: MIT
#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>

#include "../support/scratch.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"

namespace {

using hostadm::server::HostTable;
using Outcome = HostTable::Outcome;

class HostTables : public testing::Test {
protected:
    HostTable hosts(const std::string &text) {
        return {HostTable::Kind::addresses, scratch_.write("hosts", text)};
    }
    HostTable ethers(const std::string &text) {
        return {HostTable::Kind::ethernets, scratch_.write("ethers", text)};
    }
    static std::string text(const HostTable &table) { return tests::content(table.path()); }
    tests::Scratch scratch_;
};

} // namespace

TEST_F(HostTables, ANewLineGoesToTheEndAndTheRestStays) {
    const HostTable table = hosts("# mine\n127.0.0.1\tlocalhost\n\n10.0.0.1   a   # first");
    EXPECT_EQ(table.add("10.0.0.2", "b").outcome, Outcome::added);
    EXPECT_EQ(text(table), "# mine\n127.0.0.1\tlocalhost\n\n10.0.0.1   a   # first\n10.0.0.2\tb\n");
}

TEST_F(HostTables, ATableThatIsMissingIsMade) {
    const HostTable table(HostTable::Kind::ethernets, scratch_.path("ethers"));
    EXPECT_EQ(table.key_of("a"), "");
    EXPECT_EQ(table.add("08:00:20:00:00:01", "a").outcome, Outcome::added);
    EXPECT_EQ(text(table), "08:00:20:00:00:01\ta\n");
}

TEST_F(HostTables, ALineThatIsThereInAnySpellingIsLeftAlone) {
    const std::string lines = "10.0.0.1 host.lab  C1 # x\n";
    const HostTable table = hosts(lines);
    EXPECT_EQ(table.add("10.0.0.1", "c1").outcome, Outcome::present);
    EXPECT_EQ(text(table), lines);
    const HostTable macs = ethers("8:0:20:A:b:C c1\n");
    EXPECT_EQ(macs.add("08:00:20:0a:0b:0c", "c1").outcome, Outcome::present);
    EXPECT_EQ(text(macs), "8:0:20:A:b:C c1\n");
}

TEST_F(HostTables, ANameOrAKeyThatIsTakenIsAConflictAndNothingChanges) {
    const std::string lines = "10.0.0.1 a\n10.0.0.2 b\n";
    const HostTable table = hosts(lines);
    const auto taken = table.add("10.0.0.1", "c");
    EXPECT_EQ(taken.outcome, Outcome::conflict);
    EXPECT_NE(taken.conflict.find("10.0.0.1 belongs to a"), std::string::npos) << taken.conflict;
    const auto moved = table.add("10.0.0.3", "b");
    EXPECT_EQ(moved.outcome, Outcome::conflict);
    EXPECT_NE(moved.conflict.find("b has 10.0.0.2"), std::string::npos) << moved.conflict;
    EXPECT_EQ(text(table), lines);
}

TEST_F(HostTables, AnAddressOfAnotherFamilyIsNoConflict) {
    const HostTable table = hosts("fe80::1 c1\n");
    EXPECT_EQ(table.add("10.0.0.1", "c1").outcome, Outcome::added);
    EXPECT_EQ(table.key_of("c1"), "10.0.0.1");
}

TEST_F(HostTables, RemovalTakesOnlyLinesWhoseFirstNameItIs) {
    const HostTable table = hosts("10.0.0.1 a c1\n10.0.0.2 c1 # mine\n# 10.0.0.3 c1\n10.0.0.4 c10");
    EXPECT_TRUE(table.remove("c1"));
    EXPECT_EQ(text(table), "10.0.0.1 a c1\n# 10.0.0.3 c1\n10.0.0.4 c10");
    EXPECT_FALSE(table.remove("c1"));
    EXPECT_FALSE(table.remove("c10", "10.0.0.9"));
    EXPECT_TRUE(table.remove("c10", "10.0.0.4"));
    EXPECT_EQ(text(table), "10.0.0.1 a c1\n# 10.0.0.3 c1\n");
}

TEST_F(HostTables, RemovingWhatWasAddedGivesTheOldTextBack) {
    const std::string lines = "# head\n\n127.0.0.1  localhost\n";
    const HostTable table = hosts(lines);
    table.add("10.0.0.1", "c1");
    table.remove("c1", "10.0.0.1");
    EXPECT_EQ(text(table), lines);
}

TEST_F(HostTables, RemovalFromATableThatIsMissingFindsNothing) {
    EXPECT_FALSE(HostTable(HostTable::Kind::addresses, scratch_.path("none")).remove("a"));
}

TEST_F(HostTables, ATableThatCannotBeReadIsAnErrorThatNamesIt) {
    const HostTable table(HostTable::Kind::addresses, scratch_.path());
    try {
        table.add("10.0.0.1", "a");
        FAIL() << "a folder was taken for a table";
    } catch (const std::runtime_error &error) {
        EXPECT_NE(std::string(error.what()).find(scratch_.path()), std::string::npos);
    }
}

TEST_F(HostTables, OfManyWhoWantOneAddressOneGetsIt) {
    const HostTable table = hosts("");
    std::vector<std::thread> rivals;
    std::atomic<int> winners = 0;
    for (int i = 0; i < 8; ++i)
        rivals.emplace_back([&, i] {
            winners +=
                table.add("10.0.0.1", std::string(1, static_cast<char>(97 + i))).outcome == Outcome::added;
        });
    for (std::thread &rival : rivals)
        rival.join();
    EXPECT_EQ(winners, 1);
    EXPECT_EQ(text(table).size(), std::string("10.0.0.1\ta\n").size());
}

TEST_F(HostTables, ManyLookUpsKnowEveryNameInLowerCase) {
    const auto keys = hosts("10.0.0.1 A a.lab\n10.0.0.2 a\nnonsense b\n").keys_by_name();
    EXPECT_EQ(keys.at("a"), "10.0.0.1");
    EXPECT_EQ(keys.at("a.lab"), "10.0.0.1");
    EXPECT_EQ(keys.count("b"), 0u);
}

TEST_F(HostTables, ALineIsTakenBackAsItWasWrittenInWhicheverTable) {
    const hostadm::server::UndoContext context{.method = "test"};
    const HostTable table = ethers("# mine\n8:0:20:1:1:1\tb\n");
    hostadm::server::Journal journal;
    EXPECT_TRUE(table.ensure("08:00:20:00:00:01", "a", journal));
    EXPECT_FALSE(table.ensure("8:0:20:0:0:1", "A", journal)) << "it is there";
    const auto entries = journal.entries();
    ASSERT_EQ(entries.size(), 1u);
    const auto added = hostadm::server::read_entry<hostadm::server::AddedLine>(entries[0]);
    ASSERT_TRUE(added);
    EXPECT_EQ(take_back(*added, context), "");
    EXPECT_EQ(text(table), "# mine\n8:0:20:1:1:1\tb\n");
    EXPECT_EQ(take_back(*added, context), "") << "what is gone is no matter";
}

TEST_F(HostTables, ALineThatWasChangedMeanwhileIsNotTakenBack) {
    const hostadm::server::UndoContext context{.method = "test"};
    const HostTable table = hosts("10.0.0.1\tc1 alias\n");
    EXPECT_EQ(take_back(hostadm::server::AddedLine{table.path(), "10.0.0.1\tc1\n"}, context), "");
    EXPECT_EQ(text(table), "10.0.0.1\tc1 alias\n");
}

TEST_F(HostTables, AConflictIsAFailureOfTheStepAndNotesNothing) {
    const HostTable table = hosts("10.0.0.1 a\n");
    hostadm::server::Journal journal;
    EXPECT_THROW(table.ensure("10.0.0.1", "b", journal), hostadm::server::Failure);
    EXPECT_TRUE(journal.entries().empty());
}
