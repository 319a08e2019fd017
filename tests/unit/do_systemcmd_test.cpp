// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <libintl.h>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/memory_limit.hpp"
#include "support/scratch.hpp"

namespace {

using fakes::Recorded;
using Records = std::vector<Recorded>;

std::map<std::string, std::string> translations; // of message identifiers

} // namespace

// The catalogue "system_msgs" as a test fills it.
extern "C" char *dgettext(const char *domain, const char *identifier) noexcept {
    const auto found = translations.find(identifier);
    if (std::strcmp(domain, "system_msgs") != 0 || found == translations.end())
        return const_cast<char *>(identifier);
    return found->second.data();
}

namespace {

// Scripted commands: the answer is what the fake command gives.
class DoSystemcmd : public testing::Test {
protected:
    void SetUp() override { fakes::reset_all(); }
    void TearDown() override {
        EXPECT_EQ(fakes::commands().open_streams, 0);
        translations.clear();
    }

    static void answer(int status, const std::string &output, int error = 0) {
        fakes::Answer answer;
        answer.status = status;
        answer.output = output;
        answer.error = error;
        answer.once = true;
        fakes::commands().answers.push_back(answer);
    }
    // What a successful command's output comes to, without the words around it.
    static std::string collected(const std::string &output) {
        answer(0, output);
        EXPECT_EQ(do_systemcmd("list", "m"), 0);
        const std::string start = "m:: ";
        const std::string text =
            fakes::framework().errors.empty() ? "" : fakes::framework().errors.back().text;
        EXPECT_EQ(text.substr(0, start.size()), start);
        return text.substr(std::min(text.size(), start.size()));
    }
    static const Records &records() { return fakes::framework().errors; }
};

TEST_F(DoSystemcmd, WrapsTheCommand) {
    EXPECT_EQ(do_systemcmd("pkgadd -d /cdrom A ; echo *", "add_client"), 0);
    EXPECT_EQ(fakes::commands().lines,
              std::vector<std::string>{"(set -f ; pkgadd -d /cdrom A ; echo *) 2>&1"});
}

TEST_F(DoSystemcmd, SilentSuccessRecordsNothing) {
    answer(0, "");
    EXPECT_EQ(do_systemcmd("true", "m"), 0);
    EXPECT_EQ(records(), Records{});
}

TEST_F(DoSystemcmd, SuccessWithOutputRecordsItInTheBareFormat) {
    answer(0, "  hello\n");
    EXPECT_EQ(do_systemcmd("echo '  hello'", "add_client"), 0);
    EXPECT_EQ(records(), (Records{{92, "add_client:: \nhello\n"}}));
}

TEST_F(DoSystemcmd, SilentFailureRecordsNothing) {
    answer(256, "");
    EXPECT_EQ(do_systemcmd("false", "m"), 1);
    EXPECT_EQ(records(), Records{});
}

TEST_F(DoSystemcmd, FailureWithOutputRecordsCommandAndOutput) {
    answer(512, "no such package\n");
    EXPECT_EQ(do_systemcmd("pkgadd X", "m"), 1);
    EXPECT_EQ(records(), (Records{{92, "92|m|pkgadd X|\nno such package\n"}}));
}

TEST_F(DoSystemcmd, CommandThatCannotStartRecords91) {
    fakes::Answer refused;
    refused.starts = false;
    refused.error = EMFILE;
    fakes::commands().answers.push_back(refused);
    EXPECT_EQ(do_systemcmd("ls", "m"), 1);
    EXPECT_EQ(records(), (Records{{91, std::string("91|m|ls|") + std::strerror(EMFILE)}}));
}

TEST_F(DoSystemcmd, FailedWaitRecordsItsReason) {
    answer(-1, "", ECHILD);
    EXPECT_EQ(do_systemcmd("ls", "m"), 1);
    EXPECT_EQ(records(), (Records{{92, std::string("92|m|ls|") + std::strerror(ECHILD)}}));
}

TEST_F(DoSystemcmd, FailedWaitAfterOutputRecordsBoth) {
    answer(-1, "half\n", ECHILD);
    EXPECT_EQ(do_systemcmd("ls", "m"), 1);
    EXPECT_EQ(records(),
              (Records{{92, std::string("92|m|ls|") + std::strerror(ECHILD)}, {92, "92|m|ls|\nhalf\n"}}));
}

TEST_F(DoSystemcmd, FailuresAreToldInTheTextsOfTheCatalogue) {
    translations = {{"91|%s|%s|%s", "%s: %s startet nicht: %s"}, {"92|%s|%s|%s", "%s: %s sagt: %s"}};
    fakes::Answer refused;
    refused.starts = false;
    refused.error = EMFILE;
    refused.once = true;
    fakes::commands().answers.push_back(refused);
    EXPECT_EQ(do_systemcmd("ls", "m"), 1);
    answer(-1, "half\n", ECHILD);
    EXPECT_EQ(do_systemcmd("ls", "m"), 1);
    EXPECT_EQ(records(), (Records{{91, std::string("m: ls startet nicht: ") + std::strerror(EMFILE)},
                                  {92, std::string("m: ls sagt: ") + std::strerror(ECHILD)},
                                  {92, "m: ls sagt: \nhalf\n"}}));
}

TEST_F(DoSystemcmd, SuccessWithOutputIsNotLookedUpInTheCatalogue) {
    translations = {{"92|%s|%s|%s", "no %s %s"}, {"%s:: %s", "no %s %s"}};
    answer(0, "hello\n");
    EXPECT_EQ(do_systemcmd("echo hello", "m"), 0);
    EXPECT_EQ(records(), (Records{{92, "m:: \nhello\n"}}));
}

TEST_F(DoSystemcmd, FormatCharactersInOutputStayAsTheyAre) {
    EXPECT_EQ(collected("100%s full %n\n"), "\n100%s full %n\n");
}

TEST_F(DoSystemcmd, StripsLeadingBlanksOfEveryLine) {
    EXPECT_EQ(collected("   one\n two  \nthree\n"), "\none\ntwo  \nthree\n");
}

TEST_F(DoSystemcmd, KeepsTabsAtTheStart) {
    EXPECT_EQ(collected("\tone\n\t two\n"), "\n\tone\n\t two\n");
}

TEST_F(DoSystemcmd, StripsBlanksBeforeATabOnly) {
    EXPECT_EQ(collected("  \t x\n"), "\n\t x\n");
}

TEST_F(DoSystemcmd, LinesOfBlanksKeepTheirNewline) {
    EXPECT_EQ(collected("    \n\n  \n"), "\n\n\n\n");
}

TEST_F(DoSystemcmd, OutputOfBlanksAloneCountsAsOutput) {
    EXPECT_EQ(collected("   "), "\n");
}

TEST_F(DoSystemcmd, LastLineWithoutNewline) {
    EXPECT_EQ(collected("one\n two"), "\none\ntwo");
}

TEST_F(DoSystemcmd, LongLineIsStrippedAtEvery511Characters) {
    const std::string first(511, 'a');
    const std::string second = "   " + std::string(508, 'b');
    EXPECT_EQ(collected(first + second + "  c\n"), "\n" + first + std::string(508, 'b') + "c\n");
}

TEST_F(DoSystemcmd, LineOf510CharactersIsOnePieceWithItsNewline) {
    const std::string line(510, 'a');
    EXPECT_EQ(collected(line + "\n  b\n"), "\n" + line + "\nb\n");
}

TEST_F(DoSystemcmd, NewlineOfALineOf511CharactersIsAPieceOfItsOwn) {
    const std::string line(511, 'a');
    EXPECT_EQ(collected(line + "\n b\n"), "\n" + line + "\nb\n");
}

TEST_F(DoSystemcmd, PieceOfBlanksAloneVanishes) {
    EXPECT_EQ(collected(std::string(511 + 3, ' ') + "x\n"), "\nx\n");
    EXPECT_EQ(collected(std::string(3 * 511, ' ')), "\n");
}

TEST_F(DoSystemcmd, PieceEndsAtItsFirstNul) {
    using namespace std::string_literals;
    EXPECT_EQ(collected("one\0lost\n  two\n"s), "\nonetwo\n");
    EXPECT_EQ(collected("\0all lost\n"s), "\n");
}

TEST_F(DoSystemcmd, OutputOfMegabytes) {
    std::string output;
    std::string expected = "\n";
    for (int i = 0; i < 100'000; ++i) {
        const std::string line = "line number " + std::to_string(i) + "\n";
        output += "  " + line;
        expected += line;
    }
    EXPECT_EQ(collected(output), expected);
}

// Commands that really run.
class DoSystemcmdReal : public DoSystemcmd {
protected:
    void SetUp() override {
        DoSystemcmd::SetUp();
        fakes::commands().real = true;
    }
    static std::string text() { return records().empty() ? "(no record)" : records().back().text; }
};

TEST_F(DoSystemcmdReal, MergesStandardErrorInTheOrderWritten) {
    EXPECT_EQ(do_systemcmd("echo one; echo two >&2; echo three", "m"), 0);
    EXPECT_EQ(text(), "m:: \none\ntwo\nthree\n");
}

TEST_F(DoSystemcmdReal, DoesNotExpandWildcards) {
    EXPECT_EQ(do_systemcmd("echo /*", "m"), 0);
    EXPECT_EQ(text(), "m:: \n/*\n");
}

TEST_F(DoSystemcmdReal, ExitStatusOfTheCommandDecides) {
    EXPECT_EQ(do_systemcmd("exit 0", "m"), 0);
    EXPECT_EQ(do_systemcmd("exit 1", "m"), 1);
    EXPECT_EQ(records(), Records{});
    EXPECT_EQ(do_systemcmd("echo broken; exit 3", "m"), 1);
    EXPECT_EQ(text(), "92|m|echo broken; exit 3|\nbroken\n");
}

TEST_F(DoSystemcmdReal, CommandKilledByASignalFails) {
    EXPECT_EQ(do_systemcmd("kill -KILL $$", "m"), 1);
    EXPECT_EQ(records(), Records{});
}

TEST_F(DoSystemcmdReal, UnknownCommandFailsWithTheShellsWords) {
    EXPECT_EQ(do_systemcmd("no-such-command-here", "m"), 1);
    EXPECT_NE(text().find("not found"), std::string::npos) << text();
}

TEST_F(DoSystemcmdReal, CommandMayBeLong) {
    const std::string word(50'000, 'w');
    EXPECT_EQ(do_systemcmd(("echo " + word + " | wc -c").c_str(), "m"), 0);
    EXPECT_EQ(text(), "m:: \n50001\n");
}

TEST_F(DoSystemcmdReal, CommandTooLongForTheSystemIsAnError) {
    const std::string command = "echo " + std::string(500'000, 'w');
    EXPECT_EQ(do_systemcmd(command.c_str(), "m"), 1);
    EXPECT_EQ(records(), (Records{{91, "91|m|" + command + "|" + std::strerror(E2BIG)}}));
}

TEST_F(DoSystemcmdReal, LeavesNoDescriptorAndNoChild) {
    const auto descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = descriptors();
    for (int i = 0; i < 50; ++i)
        do_systemcmd("echo x; exit 1", "m");
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(DoSystemcmdReal, MemoryOutIsRecordedAndTheCommandEnds) {
    SKIP_WITHOUT_MEMORY_LIMIT();
    fakes::framework().announce_errors = true;
    const tests::Scratch scratch;
    const std::string mark = scratch.path("written-to-the-end");
    const std::string command = "head -c 200000000 /dev/zero | tr '\\0' x && : >" + mark;
    EXPECT_EXIT(
        {
            tests::limit_memory_to(60'000'000);
            std::_Exit(do_systemcmd(command.c_str(), "m") == 1 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^recorded 92: 92[|]m[|]head .*[|]Cannot allocate memory\n$");
    EXPECT_TRUE(std::filesystem::exists(mark));
}

} // namespace
