// SPDX-License-Identifier: MIT
// Bytes as text.
#include <gtest/gtest.h>
#include <string>

#include "base/encoding.hpp"

namespace {

using namespace hostadm::base;

TEST(Bytes, KnowsUtf8) {
    for (const char *text :
         {"", "abc", "\xc3\xa4", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf", "\xef\xbf\xbd"})
        EXPECT_TRUE(is_utf8(text)) << text;
    for (const char *text :
         {"\x80", "\xc3", "\xc0\x80", "\xc1\xbf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf0\x80\x80\x80",
          "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "a\xc3(", "\xe2\x82"})
        EXPECT_FALSE(is_utf8(text));
}

TEST(Printable, SpellsOutWhatSteersATerminal) {
    EXPECT_EQ(printable("a\033[2Jb\nc\td"), "a\\x1b[2Jb\\nc\\x09d");
    EXPECT_EQ(printable("\x7f"), "\\x7f");
    EXPECT_EQ(printable("gr\xc3\xbc\xc3\x9f, \xe2\x82\xac\xc2\xa7"),
              "gr\xc3\xbc\xc3\x9f, \xe2\x82\xac\xc2\xa7");
    EXPECT_EQ(printable("\xc2\x9b"
                        "2J \xc2\x80 \xc2\xa0"),
              "\\x9b"
              "2J \\x80 \xc2\xa0");
    EXPECT_EQ(printable("\x9b"), "\\x9b");
}

TEST(Printable, MayPutAQuestionMarkInstead) {
    EXPECT_EQ(printable("a\033[2J\tb\nc\xc2\x9b"
                        "d",
                        Steering::questioned),
              "a?[2J\tb?c?d");
    EXPECT_EQ(printable("\xff", Steering::questioned), "?");
}

TEST(Base64, GivesBackEveryByte) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(from_base64(to_base64(bytes)), bytes);
        bytes += static_cast<char>(byte);
    }
    EXPECT_EQ(to_base64("any"), "YW55");
    EXPECT_EQ(to_base64("an"), "YW4=");
}

TEST(Base64, RefusesWhatIsNone) {
    for (const char *text : {"?", "YW5", "YW5?", "Y===", "====", "YW4=YW4="})
        EXPECT_EQ(from_base64(text), std::nullopt) << text;
}

} // namespace
