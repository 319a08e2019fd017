// SPDX-License-Identifier: MIT
// The word that somebody may have meant.
#include <gtest/gtest.h>

#include "base/nearest.hpp"

namespace {

using hostadm::base::nearest;

TEST(Nearest, IsTheWordWithTheFewestLettersWrong) {
    const std::vector<std::string> words{"list", "help", "run", "preview", "status"};
    EXPECT_EQ(nearest(words, "lsit"), "list");
    EXPECT_EQ(nearest(words, "preveiw"), "preview");
    EXPECT_EQ(nearest(words, "staus"), "status");
    EXPECT_EQ(nearest(words, "rum"), "run");
}

TEST(Nearest, IsTheOnlyWordThatBeginsSo) {
    EXPECT_EQ(nearest({"hostname", "implementation_arch"}, "implem"), "implementation_arch");
    EXPECT_EQ(nearest({"list_shares", "list_bootparams"}, "list_"), "");
}

TEST(Nearest, IsNoneOfWordsThatAreNothingLikeIt) {
    EXPECT_EQ(nearest({"list", "help"}, "zzzzz"), "");
    EXPECT_EQ(nearest({"list", "help"}, ""), "");
    EXPECT_EQ(nearest({}, "list"), "");
    EXPECT_EQ(nearest({"list"}, std::string(100000, 'l')), "");
}

} // namespace
