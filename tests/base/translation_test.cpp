// SPDX-License-Identifier: MIT
#include <cerrno>
#include <gtest/gtest.h>
#include <string>

#include "base/language.hpp"
#include "base/translation.hpp"

namespace {

using namespace hostadm::base;

TEST(Filled, PutsTheValuesWhereTheirNumbersStand) {
    EXPECT_EQ(filled("{2} of {1}, {2}", {"a", "b"}), "b of a, b");
    EXPECT_EQ(filled("", {"a"}), "");
}

TEST(Filled, LeavesWhatIsNoNumberOfAValue) {
    EXPECT_EQ(filled("{0} {3} {a} {} { {1", {"x", "y"}), "{0} {3} {a} {} { {1");
    EXPECT_EQ(filled("{1}", {}), "{1}");
}

TEST(Filled, TakesNoPlaceInAValueForOneOfTheText) {
    EXPECT_EQ(filled("{1} {2}", {"{2}", "{1}"}), "{2} {1}");
}

TEST(Text, TakesWordsNumbersAndLetters) {
    const std::string word = "word";
    EXPECT_EQ(tr("{1} {2} {3} {4} {5}", word, "text", std::string_view("view"), 'c', -7),
              "word text view c -7");
    EXPECT_EQ(tr("{1}", std::string(100000, 'x')).size(), 100000u);
}

TEST(Text, IsItselfWhereThereIsNoTranslation) {
    EXPECT_STREQ(tr("this is in no catalogue"), "this is in no catalogue");
    EXPECT_STREQ(tr(""), ""); // and not the head of the catalogue
}

TEST(Text, IsInNoOtherLanguageWhereNoCatalogueIsAskedFor) {
    EXPECT_EQ(language_of_texts(), "");
}

TEST(Text, LeavesWhatErrnoSays) {
    errno = ENOSPC;
    EXPECT_NE(tr("{1} is in no catalogue", "x"), "");
    EXPECT_NE(tr_n(2, "{1} file", "{1} files"), "");
    EXPECT_EQ(errno, ENOSPC);
}

TEST(Text, HasTwoFormsByANumber) {
    const auto counted = [](unsigned long count) {
        return tr_n(count, "{1} file of {2}", "{1} files of {2}", "x");
    };
    EXPECT_EQ(counted(0), "0 files of x");
    EXPECT_EQ(counted(1), "1 file of x");
    EXPECT_EQ(counted(2), "2 files of x");
}

} // namespace
