// SPDX-License-Identifier: MIT
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "hostadm.h"

namespace {

using testing::ElementsAre;

// One call: its result and the five words as stored; "-" marks a pointer that was not touched.
struct Split {
    Split(std::string given, int count, std::optional<unsigned int> length = {}) : text(std::move(given)) {
        char untouched[] = "-";
        std::array<char *, 5> pointers;
        pointers.fill(untouched);
        adm_arg arg = {"os_service", ADM_STRING, length.value_or(static_cast<unsigned int>(text.size())),
                       text.data()};
        result = parse_os_service_par(&arg, pointers.data(), count);
        words.assign(pointers.begin(), pointers.end());
    }
    std::string text;
    int result;
    std::vector<std::string> words;
};

} // namespace

TEST(ParseOsService, StoresFourWordsInTheirPlaces) {
    const Split split("Quorvel 2.5 kel4 kel4m", 4);
    EXPECT_EQ(split.result, 0);
    EXPECT_THAT(split.words, ElementsAre("-", "kel4", "kel4m", "Quorvel", "2.5"));
}

TEST(ParseOsService, WordsPointIntoTheArgument) {
    std::string text = "a b";
    std::array<char *, 5> words{};
    adm_arg arg = {"os_service", ADM_STRING, 3, text.data()};
    EXPECT_EQ(parse_os_service_par(&arg, words.data(), 2), 0);
    EXPECT_EQ(words[3], text.data());
    EXPECT_EQ(words[4], text.data() + 2);
    EXPECT_EQ(text, std::string("a\0b", 3));
}

TEST(ParseOsService, SkipsLeadingBlanks) {
    const Split split("  a b", 2);
    EXPECT_EQ(split.result, 0);
    EXPECT_THAT(split.words, ElementsAre("-", "-", "-", "a", "b"));
}

TEST(ParseOsService, AnyWhiteSpaceSeparates) {
    const Split split("\t a\n\v\fb\r c \t d", 4);
    EXPECT_EQ(split.result, 0);
    EXPECT_THAT(split.words, ElementsAre("-", "c", "d", "a", "b"));
}

TEST(ParseOsService, StopsAfterTheWordsAskedFor) {
    const Split split("a b c d e", 2);
    EXPECT_EQ(split.result, 0);
    EXPECT_EQ(split.text, std::string("a\0b\0c d e", 9));
}

TEST(ParseOsService, TooFewWordsAreMinusOne) {
    const Split split("a b", 3);
    EXPECT_EQ(split.result, -1);
    EXPECT_THAT(split.words, ElementsAre("-", "-", "-", "a", "b"));
}

TEST(ParseOsService, TooFewWordsAndOneBlankAreMinusOne) {
    EXPECT_EQ(Split("a b ", 3).result, -1);
}

TEST(ParseOsService, TooFewWordsAndTwoBlanksAreBadInput) {
    EXPECT_EQ(Split("a b  ", 3).result, 1);
}

TEST(ParseOsService, BlanksOnlyAreBadInput) {
    EXPECT_EQ(Split(" ", 1).result, 1);
    EXPECT_EQ(Split("   ", 1).result, 1);
}

TEST(ParseOsService, TrailingBlanksBehindTheLastWordAreNotLookedAt) {
    EXPECT_EQ(Split("a b  ", 2).result, 0);
}

TEST(ParseOsService, FifthWordIsBadInput) {
    const Split split("a b c d e", 5);
    EXPECT_EQ(split.result, 1);
    EXPECT_THAT(split.words, ElementsAre("-", "c", "d", "a", "b"));
}

TEST(ParseOsService, FourWordsOfFiveAreMinusOne) {
    EXPECT_EQ(Split("a b c d", 5).result, -1);
}

TEST(ParseOsService, LengthShorterThanTheStringStopsTheScan) {
    EXPECT_EQ(Split("abc def", 2, 3).result, 1);
    EXPECT_EQ(Split("abc", 1, 2).result, 1);
    EXPECT_EQ(Split("   abc", 1, 2).result, 1);
    EXPECT_THAT(Split("   abc", 1, 2).words, ElementsAre("-", "-", "-", "-", "-"));
    EXPECT_EQ(Split("abc def", 1, 3).result, 0);
}

TEST(ParseOsService, EmptyValueIsMinusOne) {
    EXPECT_EQ(Split("", 1, 5).result, -1);
}

TEST(ParseOsService, RefusesMissingParts) {
    std::string text = "a";
    std::array<char *, 5> words{};
    adm_arg arg = {"os_service", ADM_STRING, 1, text.data()};
    EXPECT_EQ(parse_os_service_par(nullptr, words.data(), 1), 1);
    EXPECT_EQ(parse_os_service_par(&arg, nullptr, 1), 1);
    EXPECT_EQ(parse_os_service_par(&arg, words.data(), 0), 1);
    EXPECT_EQ(parse_os_service_par(&arg, words.data(), -1), 1);
    arg.length = 0;
    EXPECT_EQ(parse_os_service_par(&arg, words.data(), 1), 1);
    arg = {"os_service", ADM_STRING, 1, nullptr};
    EXPECT_EQ(parse_os_service_par(&arg, words.data(), 1), 1);
}
