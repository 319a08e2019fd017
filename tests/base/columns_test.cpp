// SPDX-License-Identifier: MIT
// Text in the columns of a terminal.
#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>

#include "base/columns.hpp"

namespace {

using namespace hostadm::base;

TEST(HangingText, IsBrokenAtBlanksAndStandsUnderItsBeginning) {
    EXPECT_EQ(with_hanging_text("name  ", "one two three four five six", 26),
              "name  one two three four\n      five six");
    EXPECT_EQ(with_hanging_text("name  ", "one two", 26), "name  one two");
    EXPECT_EQ(with_hanging_text("name  ", "one two three four five six", 0),
              "name  one two three four five six");
}

TEST(HangingText, KeepsALongWordWhole) {
    EXPECT_EQ(with_hanging_text("n  ", "a /very/long/path/of/more/than/that b", 24),
              "n  a\n   /very/long/path/of/more/than/that\n   b");
}

TEST(HangingText, StandsBelowAHeadingThatLeavesNoRoom) {
    EXPECT_EQ(with_hanging_text("a_name_of_many_letters  ", "one two three four five", 30),
              "a_name_of_many_letters  \n    one two three four five");
}

TEST(Width, CountsColumnsAndNotBytes) {
    EXPECT_EQ(width("plain"), 5u);
    if (std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr) {
        EXPECT_EQ(width("gr\u00fcn"), 4u);
        EXPECT_EQ(width("\u4e2d"), 2u);
    }
}

TEST(ColumnsOfTheReader, AreWhatTheEnvironmentSays) {
    setenv("COLUMNS", "132", 1);
    EXPECT_EQ(columns_of_reader(), 132u);
    setenv("COLUMNS", "1", 1);
    EXPECT_EQ(columns_of_reader(), 20u);
}

} // namespace
