// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "framework/protocol/description.hpp"
#include "framework/protocol/kinds.hpp"

namespace {

using namespace hostadm::framework;
using hostadm::method::Argument;
using hostadm::method::Kind;

std::vector<std::string> of(Kind kind, const std::vector<std::string> &values, bool wanted) {
    const Argument argument{.name = "a", .kind = kind, .choices = {"red", "green", "light blue"}};
    std::vector<std::string> others;
    for (const std::string &value : values)
        if (is_accepted(argument, value) != wanted)
            others.push_back(value);
    return others;
}

const std::vector<std::string> none;

#define EXPECT_ACCEPTED(kind, ...) EXPECT_EQ(of(kind, {__VA_ARGS__}, true), none)
#define EXPECT_REFUSED(kind, ...) EXPECT_EQ(of(kind, {__VA_ARGS__}, false), none)

// What no kind but text may let through.
const std::vector<std::string> dangerous{"a b",  "a;b",  "a|b",    "a&b",   "$(a)", "`a`", "a>b",   "a<b",
                                         "a'b",  "a\"b", "a\\b",   "a*",    "a?b",  "[a]", "{a,b}", "!a",
                                         "a\nb", "a\tb", "#a",     "a\x01", "~a",   "$a",  "(a)b",  "a\r",
                                         "-a",   "-",    "--help", "-rf",   ""};

TEST(Kinds, AllButTextRefuseWhatTheShellTakesApart) {
    for (const Kind kind : {Kind::host, Kind::address, Kind::ethernet, Kind::path, Kind::release,
                            Kind::number, Kind::size, Kind::choice, Kind::yes_no})
        EXPECT_EQ(of(kind, dangerous, false), none) << kind_name(kind);
    for (const Kind kind : {Kind::word, Kind::device, Kind::options}) {
        for (const std::string &value : dangerous) {
            // A lone dash stands for "nothing" in the tables.
            EXPECT_EQ(of(kind, {value}, value == "-"), none) << kind_name(kind);
        }
    }
    for (const std::string &value : dangerous) {
        if (value != "a b") {
            EXPECT_EQ(of(Kind::hosts, {value}, false), none);
        }
    }
}

TEST(Kinds, PathsRefuseThemBehindASlashToo) {
    for (const std::string &value : dangerous) {
        if (value.empty() || value.front() == '-')
            continue;
        const std::string behind = std::string("/").append(value);
        EXPECT_EQ(of(Kind::path, {behind}, false), none);
        EXPECT_EQ(
            of(Kind::device, {std::string("/dev").append(behind), std::string("srv:").append(behind)}, false),
            none);
    }
}

TEST(Kinds, Host) {
    EXPECT_ACCEPTED(Kind::host, "c1", "client-1", "a.b.example.org", "10.0.0.1", "my_host", "1",
                    std::string(255, 'a'));
    EXPECT_REFUSED(Kind::host, "", ".", "-a", ".a", "a..b", "a b", "a,b", "a/b", "a:b", "h\xc3\xb6st",
                   std::string(256, 'a'), std::string("a\0b", 3));
}

TEST(Kinds, Hosts) {
    EXPECT_ACCEPTED(Kind::hosts, "c1", "c1 c2", "c1,c2", "c1, c2", " c1 ",
                    std::string(300, 'a').replace(150, 1, ","));
    EXPECT_REFUSED(Kind::hosts, "", " ", ",", "c1 -c2", "c1;c2", "c1,$c2");
}

TEST(Kinds, Address) {
    EXPECT_ACCEPTED(Kind::address, "192.168.1.7", "0.0.0.0", "255.255.255.255");
    EXPECT_REFUSED(Kind::address, "", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", " 1.2.3.4", "::1",
                   "localhost", "0x1.2.3.4", "1.2.3.-4", std::string("1.2.3.4\0", 8));
}

TEST(Kinds, EthernetInEverySpelling) {
    for (const char *spelling :
         {"08:00:20:0a:0b:0c", "8:0:20:a:b:c", "08:00:20:0A:0B:0C", "08-00-20-0a-0b-0c", "8-0-20-A-B-C",
          "0800.200a.0b0c", "0800200a0b0c", "0800200A0B0C", "08.00.20.0a.0b.0c", "0800-200a-0b0c"}) {
        EXPECT_ACCEPTED(Kind::ethernet, spelling);
        EXPECT_EQ(one_spelling(Kind::ethernet, spelling), "08:00:20:0a:0b:0c") << spelling;
    }
    EXPECT_REFUSED(Kind::ethernet, "", ":", "8:0:20:a:b", "8:0:20:a:b:c:d", "8:0:20:a:b:g",
                   "8:0:20:a:b:", ":8:0:20:a:b", "800:0:20:a:b:c", "8:0-20:a:b:c", "0800.200a.0b0",
                   "0800.200a.0b0c.0d0e", "0800200a0b0", "0800200a0b0c0", "0800:200a:0b0c", "8::0:20:a:b",
                   "8:0:20:a:b:c ");
}

TEST(Kinds, Path) {
    EXPECT_ACCEPTED(Kind::path, "/", "/export/root/c1", "/a//b/", "/a/.hidden", "/a/...", "/a=b,c+d@e%f:g",
                    "/tmp/\xc3\xa4", std::string("/").append(255, 'a'));
    EXPECT_REFUSED(Kind::path, "", "a", "./a", "../a", "/..", "/../a", "/a/..", "/a/../b",
                   std::string("/").append(256, 'a'), "/a b", std::string("/a\0b", 4));
    std::string longest;
    while (longest.size() < 4095)
        longest += longest.size() % 200 == 0 ? '/' : 'a';
    EXPECT_ACCEPTED(Kind::path, longest);
    EXPECT_REFUSED(Kind::path, longest + "a");
}

TEST(Kinds, Device) {
    EXPECT_ACCEPTED(Kind::device, "-", "/dev/sd0a", "srv:/export", "proc", "swap", "10.0.0.1:/x");
    EXPECT_REFUSED(Kind::device, "", "srv:/..", "-srv:/export", "srv:/a b", ":/a");
}

TEST(Kinds, Options) {
    EXPECT_ACCEPTED(Kind::options, "rw", "rw=c1:c2,root=c1,anon=0", "ro", "-", "rw=10.0.0.0/24", "rw=@net");
    EXPECT_REFUSED(Kind::options, "", "-rw", "rw;x", "rw, ro", "rw=$x", "rw\nro");
}

TEST(Kinds, Release) {
    EXPECT_ACCEPTED(Kind::release, "2.5", "4.1.3", "5", "2.5_B", "2.5.1a");
    EXPECT_REFUSED(Kind::release, "", "a", ".5", "2.", "2..5", "2 5", "-2", std::string(65, '1'));
}

TEST(Kinds, Word) {
    EXPECT_ACCEPTED(Kind::word, "a", "kel4m", "a+b-c_d.e:f,g@h%i", "-");
    EXPECT_REFUSED(Kind::word, "", "a b", "-a", "a/b", "a=b", std::string(4096, 'a'));
}

TEST(Kinds, NumberAndSize) {
    EXPECT_ACCEPTED(Kind::number, "0", "007", "999999999999999999");
    EXPECT_REFUSED(Kind::number, "", "-1", "+1", "1.5", "1k", "9999999999999999999", "0x10", " 1");
    EXPECT_ACCEPTED(Kind::size, "0", "16m", "16M", "512k", "2g", "1024");
    EXPECT_REFUSED(Kind::size, "", "m", "16mb", "16 m", "-16m", "1.5g", "16t");
}

TEST(Kinds, ChoiceAndYesNo) {
    EXPECT_ACCEPTED(Kind::choice, "red", "light blue");
    EXPECT_REFUSED(Kind::choice, "", "blue", "Red", "red ");
    EXPECT_ACCEPTED(Kind::yes_no, "yes", "no");
    EXPECT_REFUSED(Kind::yes_no, "", "y", "Yes", "true", "1");
}

TEST(Kinds, TextIsAnythingOnOneLine) {
    EXPECT_ACCEPTED(Kind::text, "", "a b;c $(d)", "-x", "a\tb", "\xc3\xa4", "\xff", std::string(65535, 'x'));
    EXPECT_REFUSED(Kind::text, "a\nb", "a\rb", "a\x1b[2J", std::string("a\0b", 3), std::string(65536, 'x'));
}

TEST(Kinds, WordsAreNothingThatAShellTakesApart) {
    EXPECT_ACCEPTED(Kind::words, "-a", "-a 16", "-s /tftpboot --address 0.0.0.0:69", "--name=value", " ");
    EXPECT_REFUSED(Kind::words, "", "a;b", "a|b", "a&", "a>b", "$(a)", "`a`", "a'b", "a\"b", "a\\b", "a\nb",
                   "a\tb", "~", "*", "?", "[a]", "{a}", "#a", "!a", "(a)", std::string(65536, 'x'));
}

TEST(Kinds, HaveNamesBothWays) {
    for (int kind = 0; kind <= static_cast<int>(Kind::words); ++kind) {
        const auto name = kind_name(static_cast<Kind>(kind));
        EXPECT_EQ(kind_called(name), static_cast<Kind>(kind));
        EXPECT_NE(accepted({.name = "a", .kind = static_cast<Kind>(kind), .choices = {"one"}}), "");
    }
    EXPECT_EQ(kind_called("colour"), std::nullopt);
}

TEST(Kinds, ChoicesAreListed) {
    EXPECT_EQ(accepted({.name = "a", .kind = Kind::choice, .choices = {"one"}}), "one");
    EXPECT_EQ(accepted({.name = "a", .kind = Kind::choice, .choices = {"one", "two"}}), "one or two");
    EXPECT_EQ(accepted({.name = "a", .kind = Kind::choice, .choices = {"one", "two", "three"}}),
              "one, two or three");
}

TEST(Check, TellsAllArgumentsThatAreMissing) {
    const hostadm::method::Description description{
        .name = "test/x",
        .arguments = {{.name = "one", .kind = Kind::number, .purpose = "the first", .required = true},
                      {.name = "two", .kind = Kind::number, .required = true},
                      {.name = "three", .kind = Kind::yes_no, .required = true},
                      {.name = "four", .kind = Kind::number}}};
    hostadm::framework::Request all{"test/x", {{"two", ""}}};
    EXPECT_EQ(check(description, all), "3 arguments are missing:\n"
                                       "one: the first; a decimal number, not negative\n"
                                       "two: a decimal number, not negative\n"
                                       "three: yes or no");
    hostadm::framework::Request last{"test/x", {{"one", "1"}, {"two", "2"}}};
    EXPECT_EQ(check(description, last), "the argument three is missing; it must be yes or no");
}

} // namespace
