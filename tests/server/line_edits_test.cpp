// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/scratch.hpp"
#include "server/failure.hpp"
#include "server/journal.hpp"
#include "server/line_edits.hpp"
#include "server/undo_context.hpp"

namespace {

using namespace hostadm::server;
using testing::IsEmpty;
using testing::SizeIs;

class LineEdits : public testing::Test {
protected:
    std::string table_with(const std::string &text) { return scratch.write("table", text); }
    std::string now() const { return tests::content(scratch.path("table")); }
    // What had to stay.
    std::string take_everything_back() {
        std::string stayed;
        for (const Written &entry : journal.entries())
            if (const auto replaced = read_entry<ReplacedLine>(entry))
                stayed += take_back(*replaced, {.method = "test"});
        return stayed;
    }

    tests::Scratch scratch;
    Journal journal;
};

std::optional<std::string> capitals(std::string_view line) {
    return line == "b" ? std::optional<std::string>("B") : std::nullopt;
}

} // namespace

TEST_F(LineEdits, OtherLinesKeepEveryByte) {
    const std::string table = table_with("a \t\r\n\nb\n# b\nno end");
    EXPECT_TRUE(change_lines(table, capitals, journal));
    EXPECT_EQ(now(), "a \t\r\n\nB\n# b\nno end");
    EXPECT_EQ(take_everything_back(), "");
    EXPECT_EQ(now(), "a \t\r\n\nb\n# b\nno end");
}

TEST_F(LineEdits, WithNothingToChangeTheTableIsNotTouched) {
    EXPECT_FALSE(change_lines(table_with("a\n"), capitals, journal));
    EXPECT_FALSE(change_lines(scratch.path("none"), capitals, journal));
    EXPECT_THAT(journal.entries(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(scratch.path("none")));
}

TEST_F(LineEdits, ALastLineWithoutAnEndIsChangedToo) {
    EXPECT_TRUE(change_lines(table_with("b\nb"), capitals, journal));
    EXPECT_EQ(now(), "B\nB");
    EXPECT_EQ(take_everything_back(), "");
    EXPECT_EQ(now(), "b\nb");
}

TEST_F(LineEdits, ALineThatSomebodyElseChangedSinceStaysAndIsTold) {
    ASSERT_TRUE(change_lines(table_with("b\n"), capitals, journal));
    table_with("somebody else\n");
    EXPECT_NE(take_everything_back(), "");
    EXPECT_EQ(now(), "somebody else\n");
}

TEST_F(LineEdits, LinesThatFollowEachOtherAreReplacedTogether) {
    const std::string table = table_with("a\nb\nc\n");
    replace_lines(table, "b\nc\n", "new\n", journal);
    EXPECT_EQ(now(), "a\nnew\n");
    EXPECT_THAT(journal.entries(), SizeIs(1));
    EXPECT_EQ(take_everything_back(), "");
    EXPECT_EQ(now(), "a\nb\nc\n");
}

TEST_F(LineEdits, LinesThatAreGoneCannotBeReplaced) {
    const std::string table = table_with("ab\n");
    EXPECT_THROW(replace_lines(table, "b\n", "new\n", journal), Failure) << "it is the end of another line";
    EXPECT_EQ(now(), "ab\n");
}

TEST(DisabledLines, AreFoundBehindTheirMark) {
    EXPECT_EQ(disabled_line(std::string(disabled_mark) + "8:0:20:1:2:3 c1"), "8:0:20:1:2:3 c1");
    EXPECT_EQ(disabled_line("# 8:0:20:1:2:3 c1"), std::nullopt);
    EXPECT_EQ(disabled_line(""), std::nullopt);
}
