// SPDX-License-Identifier: MIT
// Methods that are shell scripts.
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <variant>

#include "framework/protocol/description.hpp"
#include "support.hpp"
#include "support/eventually.hpp"
#include "support/scratch.hpp"
#include "support/text_files.hpp"

namespace {

using testing::StartsWith;
using tests::MethodRun;
using Variables = std::vector<std::pair<const char *, const char *>>;

// It is gone, or nobody has waited for it yet.
bool ended(pid_t process) {
    const std::string state = tests::content("/proc/" + std::to_string(process) + "/stat");
    return state.empty() || state.find(") Z ") != state.npos;
}

TEST(Script, AnswersThroughTheCommand) {
    testing::internal::CaptureStderr();
    const MethodRun run("script", {{"host", "client1"}, {"mac", "8-0-20-1-2-3"}});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "said by the script\n");
    EXPECT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.field("greeting"), "hello client1");
    EXPECT_EQ(run.field("mac"), "08:00:20:01:02:03");
    ASSERT_EQ(run.rows(), 2u);
    EXPECT_EQ(run.field("word") + "," + run.field("dash"), "hello,-");
    adm_args_nextr(run.output);
    EXPECT_EQ(run.field("word") + "," + run.field("dash"), "client1,a=b");
}

// What a method begins with, whatever its caller has set up.
void expect_fresh_start(const MethodRun &run) {
    EXPECT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.field("variables"), "HOME LANG PATH PWD ");
    EXPECT_EQ(run.field("path"), TEST_ROOT "/bin:/usr/sbin:/usr/bin:/sbin:/bin");
    EXPECT_EQ(run.field("mask"), "0022");
    EXPECT_EQ(run.field("largest_file"), "unlimited");
}

TEST(Script, BeginsWithACleanEnvironmentMaskAndLimits) {
    for (const auto &[name, value] : Variables{{"LD_PRELOAD", "/nowhere.so"},
                                               {"IFS", "x"},
                                               {"LANGUAGE", "../../tmp"},
                                               {"BASH_ENV", "/tmp/x"},
                                               {"ENV", "/tmp/x"},
                                               {"LC_ALL", "/tmp/x"},
                                               {"LANG", "C.UTF-8"},
                                               {"COLUMNS", "1;2"},
                                               {"TERM", "/tmp/term"}})
        setenv(name, value, 1);
    const mode_t mask = umask(0777);
    rlimit limit{}, small{};
    getrlimit(RLIMIT_FSIZE, &limit);
    small = {1024, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const MethodRun run("surroundings");
    rlimit after{};
    getrlimit(RLIMIT_FSIZE, &after);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(umask(mask), 0777u); // the caller's own are as they were
    EXPECT_EQ(after.rlim_cur, small.rlim_cur);
    for (const char *name :
         {"LD_PRELOAD", "IFS", "LANGUAGE", "BASH_ENV", "ENV", "LC_ALL", "LANG", "COLUMNS", "TERM"})
        unsetenv(name);
    expect_fresh_start(run);
}

TEST(Script, TakesValuesThatBeginWithADash) {
    EXPECT_EQ(MethodRun("script", {{"host", "c"}, {"greeting", "-n"}}).field("greeting"), "-n c");
}

TEST(Script, IsCheckedBeforeItRuns) {
    EXPECT_THAT(MethodRun("script").text(),
                StartsWith("the argument host is missing; it must be a host name"));
    EXPECT_THAT(MethodRun("script", {{"host", "$(reboot)"}}).text(),
                StartsWith("the argument host cannot be \"$(reboot)\""));
    EXPECT_EQ(MethodRun("script", {{"host", "c"}, {"greeting", "bye"}}).text(),
              "the argument greeting cannot be \"bye\"; it must be hello or -n");
    EXPECT_EQ(MethodRun("script", {{"host", "c"}, {"hots", "d"}}).text(),
              "there is no argument \"hots\"; did you mean host?");
}

TEST(Script, RecordsErrors) {
    const MethodRun run("script", {{"host", "c"}, {"end", "fail"}});
    EXPECT_EQ(run.status, 12);
    EXPECT_EQ(run.text(), "script: the host c does not answer");
    EXPECT_EQ(run.field("greeting"), "hello c");
    EXPECT_EQ(MethodRun("script", {{"host", "c"}, {"end", "undone"}}).status, 12);
}

TEST(Script, ThatFailsSilentlyIsSaidToHave) {
    EXPECT_EQ(MethodRun("script", {{"host", "c"}, {"end", "silent"}}).text(),
              "it ended with exit status 3 and recorded no error");
}

TEST(Script, ThatForgetsARequiredOutputHasFailed) {
    EXPECT_EQ(MethodRun("script", {{"host", "c"}, {"end", "forget"}}).text(),
              "it did not return the output greeting");
}

TEST(Script, ThatCannotDescribeItselfIsNotRun) {
    EXPECT_EQ(MethodRun("undescribed").text(), "its description of itself cannot be used: it is no JSON");
    EXPECT_EQ(MethodRun("failing_description").text(),
              "asked to describe itself, it ended with exit status 4");
    EXPECT_EQ(MethodRun("unknown_kind").text(),
              "its description of itself cannot be used: argument a is of the unknown kind \"colour\"");
}

// What is wrong with a description that has these arguments; "" for none.
std::string defect_of(const std::string &arguments) {
    const auto parsed = hostadm::framework::parse_description(
        R"({"name": "test/a", "purpose": "p", "arguments": [)" + arguments + "]}");
    const auto *defect = std::get_if<std::string>(&parsed);
    return defect == nullptr ? "" : *defect;
}

TEST(Script, MayNotDescribeArgumentsThatCannotBeGiven) {
    EXPECT_EQ(defect_of(R"({"name": "a", "kind": "choice"})"), "argument a has no \"choices\"");
    EXPECT_EQ(defect_of(R"({"name": "a", "kind": "word"}, {"name": "a", "kind": "host"})"),
              "it has two arguments a");
    EXPECT_EQ(defect_of(R"({"name": "a", "kind": "number", "default": "few"})"),
              "the default of argument a cannot be \"few\"; it must be a decimal number, not negative");
    EXPECT_EQ(defect_of(R"({"name": "a", "kind": "choice", "choices": ["b", "c"], "default": "d"})"),
              "the default of argument a cannot be \"d\"; it must be b or c");
    EXPECT_EQ(defect_of(R"({"name": "a", "kind": "choice", "choices": ["b", "c"], "default": "c"})"), "");
}

TEST(Script, IsCalledWhatItsFileIsCalled) {
    const std::unique_ptr<FILE, int (*)(FILE *)> help(popen(TEST_ROOT "/bin/hostadm help test/copied", "r"),
                                                      &pclose);
    char first[256] = {};
    ASSERT_NE(std::fgets(first, sizeof first, help.get()), nullptr);
    EXPECT_STREQ(first, "test/copied: be copied\n");
}

TEST(Script, ThatHangsWhenAskedToDescribeItselfIsKilled) {
    EXPECT_EQ(MethodRun("hanging_description", {}, "slow").text(),
              "asked to describe itself, it did not end in time and was killed");
}

TEST(Script, ThatDescribesItselfWithoutEndIsCutOff) {
    EXPECT_EQ(MethodRun("endless_description", {}, "slow").text(),
              "asked to describe itself, it prints more than a megabyte");
}

TEST(Script, ThatHangsIsKilledWithWhatItWaitsFor) {
    const std::string file = TEST_ROOT "/libexec/hostadm/methods/slow/waiting_description.waited_for";
    tests::write(file, "");
    EXPECT_EQ(MethodRun("waiting_description", {}, "slow").text(),
              "asked to describe itself, it did not end in time and was killed");
    const pid_t waited_for = std::stoi(tests::content(file));
    unlink(file.c_str());
    EXPECT_TRUE(tests::eventually([&] { return ended(waited_for); }));
}

} // namespace
