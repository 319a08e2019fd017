// SPDX-License-Identifier: MIT
// Running methods that behave and misbehave.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm/runner.hpp"
#include "support.hpp"
#include "support/scratch.hpp"

namespace {

using hostadm::framework::serve_greeting;
using testing::HasSubstr;
using testing::StartsWith;
using tests::behave;
using tests::MethodRun;

TEST(Perform, ReturnsOutputsAndSucceeds) {
    const MethodRun run("echo", {{"text", "hello there"}, {"times", "2"}});
    EXPECT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.field("said"), "hello therehello there");
    ASSERT_NE(run.error, nullptr);
    EXPECT_EQ(run.error->code, 0);
    EXPECT_EQ(run.text(), "");
}

TEST(Perform, FindsAMethodByItsUniqueName) {
    EXPECT_EQ(MethodRun("rows", {}, nullptr).status, 0);
    EXPECT_EQ(MethodRun("rows", {}, "").status, 0);
    EXPECT_EQ(MethodRun("test/rows", {}, "").status, 0);
}

TEST(Perform, AsksForTheClassWhereANameIsNotUnique) {
    const MethodRun run("echo", {}, "");
    EXPECT_EQ(run.status, 102);
    EXPECT_EQ(run.text(), "there are several methods echo: other/echo and test/echo; give the class too");
    EXPECT_EQ(MethodRun("echo", {}, "other").status, 0);
}

TEST(Perform, NamesTheNearestOfAnUnknownMethod) {
    EXPECT_EQ(MethodRun("eco").text(), "there is no method test/eco; did you mean test/echo?");
    EXPECT_EQ(MethodRun("kind", {}, "").text(), "there is no method kind; did you mean test/kinds?");
    const MethodRun far("quite_something_else");
    EXPECT_EQ(far.status, 102);
    EXPECT_EQ(far.text(), "there is no method test/quite_something_else; `hostadm list` shows them all");
}

TEST(Perform, LeavesTheMethodsFolderUnderNoName) {
    for (const char *name :
         {"../../../bin/hostadm", "..", ".", "", "echo/", "/bin/true", "test/../test/echo", "echo\n"})
        EXPECT_EQ(MethodRun(name).status, 102) << name;
    for (const char *method_class : {"..", "/", "../methods/test", "test/"})
        EXPECT_EQ(MethodRun("echo", {{"text", "x"}}, method_class).status, 102) << method_class;
}

TEST(Perform, RefusesWhatItDoesNotUnderstand) {
    adm_args *output = nullptr;
    adm_error *error = nullptr;
    EXPECT_NE(adm_perf_method(nullptr, nullptr, &output, &error, 0), 0);
    EXPECT_STREQ(error->text, "no method was named");
    adm_err_freeh(error);
    adm_args_freeh(output);
    char value[] = "x";
    EXPECT_NE(adm_perf_method("echo", nullptr, &output, &error, 2, value, 0), 0);
    EXPECT_STREQ(error->text, "an option is not known");
    adm_err_freeh(error);
    adm_args_freeh(output);
}

TEST(Perform, DoesWithoutPlacesForItsResults) {
    char method_class[] = "test";
    EXPECT_EQ(adm_perf_method("rows", nullptr, nullptr, nullptr, ADM_CLASS, method_class, 0), 0);
    EXPECT_NE(adm_perf_method("echo", nullptr, nullptr, nullptr, ADM_CLASS, method_class, 0), 0);
}

TEST(Perform, ChecksArgumentsBeforeTheWork) {
    const MethodRun missing("echo");
    EXPECT_EQ(missing.status, 102);
    EXPECT_EQ(missing.text(),
              "the argument text is missing; it must be text on one line, at most 65535 characters");
    EXPECT_EQ(adm_args_htype(missing.output), 0u);
    const MethodRun unknown("echo", {{"text", "x"}, {"tims", "3"}});
    EXPECT_EQ(unknown.text(), "there is no argument \"tims\"; did you mean times?");
    EXPECT_EQ(MethodRun("forgetful", {{"a", "b"}}).text(), "there is no argument \"a\"; it takes none");
}

TEST(Perform, HandsOnDefaultsAndOneSpelling) {
    const MethodRun run("kinds", {{"ethernet", "8:0:20:A:b:C"}});
    ASSERT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.rows(), 2u);
    EXPECT_EQ(run.field("name") + " " + run.field("value") + " " + run.field("given"),
              "ethernet 08:00:20:0a:0b:0c yes");
    adm_args_nextr(run.output);
    EXPECT_EQ(run.field("name") + " " + run.field("value"), "word standard");
}

TEST(Perform, TakesAnEmptyValueAsNone) {
    const MethodRun run("kinds", {{"word", ""}, {"path", ""}});
    ASSERT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.field("name") + "=" + run.field("value"), "path=");
    adm_args_nextr(run.output);
    EXPECT_EQ(run.field("name") + "=" + run.field("value"), "word=standard");
    EXPECT_THAT(MethodRun("echo", {{"text", ""}}).text(), StartsWith("the argument text is missing"));
}

TEST(Perform, CarriesValuesByteForByte) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += static_cast<char>(byte);
    for (const std::string &bytes :
         {all, std::string("a=b=c"), std::string("-"), std::string("\xff"), std::string(),
          std::string("{\"base64\": \"AA==\"}"), std::string("\xc3\xa4\xe2\x82\xac")}) {
        const MethodRun run("plain", {{"bytes", bytes}});
        EXPECT_EQ(run.status, 0) << run.text();
        EXPECT_EQ(run.field("bytes"), bytes);
    }
}

TEST(Perform, RunsAMethodInC) {
    const MethodRun run("plain");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.text(), "plain: the argument bytes is missing");
}

TEST(Perform, CarriesLongValues) {
    constexpr std::size_t length = 20 << 20;
    const MethodRun run("rows", {{"length", std::to_string(length)}});
    ASSERT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.field("long"), std::string(length, 'x'));
    const std::string much(5 << 20, 'y');
    EXPECT_EQ(MethodRun("plain", {{"bytes", much}}).field("bytes"), much);
}

TEST(Perform, CarriesManyRows) {
    const MethodRun run("rows", {{"rows", "100000"}});
    ASSERT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.rows(), 100000u);
    std::size_t row = 0;
    do
        ASSERT_EQ(run.field("hostname"), "client" + std::to_string(row++));
    while (adm_args_nextr(run.output) != ADM_NO_MORE_ROWS);
}

TEST(Perform, RunsOneMethodFromAnother) {
    EXPECT_EQ(behave("nested").field("nested"), "hi");
}

TEST(BadMethod, ThatFailsGivesItsRecord) {
    const auto run = behave("fail");
    EXPECT_EQ(run.status, 100);
    EXPECT_EQ(run.text(), "behave: it was told to");
    EXPECT_EQ(run.field("how"), "fail");
    EXPECT_EQ(run.field("number"), "1");
}

TEST(BadMethod, ThatFailsSilentlyIsSaidToHave) {
    const auto run = behave("fail_silently");
    EXPECT_EQ(run.status, 101);
    EXPECT_EQ(run.text(), "it ended with exit status 1 and recorded no error");
    EXPECT_EQ(behave("exit_1").text(), "it ended with exit status 1 and recorded no error");
}

TEST(BadMethod, ThatEndsItsProcessAfterARecordGivesTheRecord) {
    const auto run = behave("exit_255");
    EXPECT_EQ(run.status, 100);
    EXPECT_EQ(run.text(), "behave: cannot go on");
}

TEST(BadMethod, ThatCrashesLosesNothing) {
    const auto run = behave("crash");
    EXPECT_EQ(run.status, 100);
    EXPECT_EQ(run.text(), "it was killed by signal 11 (Segmentation fault); behave: about to crash");
    EXPECT_EQ(run.field("how"), "crash");
    EXPECT_EQ(run.field("number"), "1");
}

TEST(BadMethod, ThatHangsUpEarlyHasFailed) {
    const auto run = behave("exit_early");
    EXPECT_EQ(run.status, 101);
    EXPECT_EQ(run.text(), "it ended before its work was done");
    EXPECT_EQ(run.field("number"), "1");
}

TEST(BadMethod, ThatHangsUpInALineHasFailed) {
    const auto run = behave("half_a_line");
    EXPECT_EQ(run.status, 101);
    EXPECT_EQ(run.text(), "its answer breaks off in the middle of a line: {\"output\": \"late\", \"val");
    EXPECT_EQ(run.field("how"), "half_a_line");
}

TEST(BadMethod, ThatAnswersRubbishHasFailed) {
    const auto run = behave("rubbish");
    EXPECT_EQ(run.status, 101);
    EXPECT_EQ(run.text(), "line 4 of its answer cannot be understood: what?is this");
}

TEST(BadMethod, RubbishDoesNotHideWhatFollows) {
    const auto run = behave("rubbish_then_row");
    EXPECT_EQ(run.text(), "line 4 of its answer cannot be understood: [1, 2]");
    EXPECT_EQ(run.rows(), 2u);
}

TEST(BadMethod, ThatForgetsARequiredOutputHasFailed) {
    const MethodRun run("forgetful");
    EXPECT_EQ(run.status, 101);
    EXPECT_EQ(run.text(), "forgetful: it did not return the output promised");
}

TEST(BadMethod, ThatThrowsHasFailed) {
    const auto run = behave("throw");
    EXPECT_EQ(run.status, 100);
    EXPECT_EQ(run.text(), "behave: thrown out");
}

TEST(BadMethod, ThatReturnsAnOutputWithoutANameHasFailed) {
    const auto run = behave("bad_output");
    EXPECT_EQ(run.status, 100);
    EXPECT_EQ(run.text(), "behave: it could not return the output \"9 lives\"; is that a name?");
}

TEST(BadMethod, ThatIsNoProgramIsSaidToBeNone) {
    EXPECT_EQ(MethodRun("not_executable").text(),
              "it is not executable, or you may not run it; is root needed?");
    EXPECT_EQ(MethodRun("no_program").text(), "it is no program that this host can run");
    EXPECT_EQ(MethodRun("no_interpreter").text(),
              "asked to describe itself, it could not be started: No such file or directory");
    EXPECT_EQ(MethodRun("no_interpreter").status, 101);
}

TEST(Method, PrintsToStandardError) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(behave("print").status, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "printed by the method\n");
}

TEST(Method, GetsNoDescriptorButItsOwn) {
    const int leaky = open("/dev/null", O_RDONLY);
    const int high = fcntl(leaky, F_DUPFD, 40);
    const auto run = behave("own_descriptors");
    EXPECT_EQ(run.field("open"), "0 1 2 3 4 ");
    // And a command that it starts has not even the two of the framework; 3 is the listing's own.
    EXPECT_EQ(run.field("open_in_command"), "0 1 2 3 ");
    close(high);
    close(leaky);
}

TEST(Method, GetsFreshSignals) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    auto *const handler = std::signal(SIGPIPE, SIG_IGN);
    const auto run = behave("own_signals");
    std::signal(SIGPIPE, handler);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(run.field("blocked"), "no");
    EXPECT_EQ(run.field("ignored"), "no");
}

TEST(Method, IsWaitedForWhereChildrenAreIgnored) {
    auto *const handler = std::signal(SIGCHLD, SIG_IGN);
    const auto run = behave("fail");
    EXPECT_EQ(std::signal(SIGCHLD, handler), SIG_IGN);
    EXPECT_EQ(run.text(), "behave: it was told to");
}

TEST(Method, IsTheOnlyChildWaitedFor) {
    const pid_t other = fork();
    if (other == 0)
        _exit(5);
    EXPECT_EQ(behave("well").status, 0);
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST(Method, IsWaitedForThroughSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGALRM, &action, &before);
    const itimerval often{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    const MethodRun run("rows", {{"rows", "20000"}});
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.rows(), 20000u);
}

TEST(Method, MayLeaveADaemonBehind) {
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(behave("outlive").status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20));
}

TEST(Method, WorksWithLowDescriptorsClosed) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const MethodRun run("echo", {{"text", "x"}});
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(run.field("said"), "x");
}

TEST(Method, StartedByHandSaysHowToRunIt) {
    const std::string path = std::string(TEST_ROOT) + "/libexec/hostadm/methods/test/echo";
    std::FILE *stream = popen((path + " text=x 2>&1").c_str(), "r");
    char line[4096] = "";
    ASSERT_NE(std::fgets(line, sizeof line, stream), nullptr);
    EXPECT_EQ(std::string(line), path + ": run it with: hostadm run test/echo\n");
    EXPECT_EQ(WEXITSTATUS(pclose(stream)), 2);
}

// Programs that stand in for ssh note their arguments and do what a login there would.
class OtherHost : public testing::Test {
protected:
    void ssh(const std::string &body) {
        scratch.write("bin/ssh", "#!/bin/sh\necho \"$@\" >" + scratch.path("asked") + "\n" + body + "\n");
        chmod(scratch.path("bin/ssh").c_str(), 0755);
        setenv("PATH", (scratch.path("bin") + ":" + path).c_str(), 1);
    }
    void TearDown() override { setenv("PATH", path.c_str(), 1); }
    // What a fake ssh does to run the command of its caller.
    const std::string log_in =
        "while [ $1 != -- ]; do shift; done; shift 2; PATH=" TEST_ROOT "/bin:$PATH; exec \"$@\"";
    tests::Scratch scratch;
    const std::string path = getenv("PATH");
};

TEST_F(OtherHost, RunsTheMethodThere) {
    ssh(log_in);
    const MethodRun run("echo", {{"text", "f\xffr"}, {"times", "2"}, {"rows", "yes"}}, "test",
                        "other.example");
    EXPECT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.field("said"), "f\xffr"
                                 "f\xffr");
    EXPECT_EQ(run.rows(), 2u);
    const std::string asked = tests::content(scratch.path("asked"));
    EXPECT_THAT(asked, HasSubstr(" -o BatchMode=yes -o ConnectTimeout=30 "));
    EXPECT_THAT(asked, testing::EndsWith(" -- other.example hostadm serve\n"));
}

TEST_F(OtherHost, GivesTheErrorsFromThere) {
    ssh(log_in);
    const MethodRun failed("behave", {{"how", "crash"}}, "test", "other.example");
    EXPECT_EQ(failed.text(), "it was killed by signal 11 (Segmentation fault); behave: about to crash");
    EXPECT_EQ(failed.field("number"), "1");
    const MethodRun invalid("echo", {}, "test", "other.example");
    EXPECT_EQ(invalid.status, 102);
    EXPECT_THAT(invalid.text(), StartsWith("the argument text is missing"));
    const MethodRun unknown("ekko", {}, "test", "other.example");
    EXPECT_EQ(unknown.text(), "there is no method test/ekko; did you mean test/echo?");
}

TEST_F(OtherHost, ThatCannotBeReachedIsSaidSo) {
    const auto logging = [](const std::string &text) {
        return "while [ $1 != -E ]; do shift; done; printf '" + text + "\\r\\n' >>$2; exit 255";
    };
    struct Row {
        const char *logged;
        int code;
        const char *said;
    };
    for (const Row &row : {
             Row{"ssh: Could not resolve hostname x: Name or service not known", 130, "has no address here"},
             Row{"ssh: connect to host x port 22: Connection refused", 131, "refuses the connection"},
             Row{"ssh: connect to host x port 22: No route to host", 132,
                 "No route to host); is it switched on"},
             Row{"Connection timed out during banner exchange", 132, "did not answer in time"},
             Row{"Host key verification failed.", 133, "is not known here"},
             Row{"WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED!\\r\\nHost key verification failed.", 134,
                 "is another one than before"},
             Row{"x: Permission denied (publickey).", 135, "without a password"},
             Row{"Received disconnect: Too many authentication failures", 135, "all the keys"},
             Row{"Unable to negotiate with x port 22: no matching host key", 132, "no matching host key"},
         }) {
        ssh(logging(row.logged));
        const MethodRun run("echo", {{"text", "x"}}, "test", "other.example");
        EXPECT_EQ(run.status, row.code) << row.logged;
        EXPECT_THAT(run.text(), HasSubstr("other.example")) << row.logged;
        EXPECT_THAT(run.text(), HasSubstr(row.said)) << row.logged;
    }
}

TEST_F(OtherHost, ThatLetsUsInAndHasNoHostadmIsSaidSo) {
    ssh("echo 'sh: hostadm: not found' >&2; exit 127");
    const MethodRun run("echo", {{"text", "x"}}, "test", "other.example");
    EXPECT_EQ(run.status, 136);
    EXPECT_EQ(run.text(), "there is no hostadm on other.example (sh: hostadm: not found); install it there");
    ssh("echo 'This account is not available.'; exit 1");
    EXPECT_EQ(MethodRun("echo", {{"text", "x"}}, "test", "other.example").status, 136);
    ssh("exec yes");
    EXPECT_THAT(MethodRun("echo", {{"text", "x"}}, "test", "other.example").text(),
                HasSubstr("does not stop talking"));
}

TEST_F(OtherHost, ThatGreetsAndBreaksOffKeepsWhatCame) {
    const std::string greeting = "echo '" + std::string(serve_greeting) + "'; ";
    ssh("echo 'welcome to this host'; " + greeting +
        "echo '{\"output\": \"said\", \"value\": \"half\"}'; echo '{\"outc'; kill -9 $$");
    const MethodRun run("echo", {{"text", "x"}}, "test", "other.example");
    EXPECT_EQ(run.status, 139);
    EXPECT_THAT(run.text(), HasSubstr("the answer of other.example breaks off: ssh was killed by signal 9"));
    EXPECT_EQ(run.field("said"), "half");
}

TEST_F(OtherHost, MayPrintAWelcomeFirst) {
    ssh("echo welcome; echo \"it is late\"; " + log_in);
    EXPECT_EQ(MethodRun("echo", {{"text", "x"}}, "test", "other.example").field("said"), "x");
}

TEST_F(OtherHost, WithABadNameIsNotAsked) {
    ssh("exit 1");
    for (const char *host : {"-oProxyCommand=x", "a b", "x;y", "host..name", "user@host", "@host"})
        EXPECT_EQ(MethodRun("echo", {{"text", "x"}}, "test", host).status, 102) << host;
    EXPECT_EQ(tests::content(scratch.path("asked")), "");
}

TEST_F(OtherHost, ThatIsThisOneIsNotAsked) {
    ssh("exit 1");
    char own[256] = "";
    gethostname(own, sizeof own - 1);
    for (const std::string &host : {std::string(), std::string("localhost"), std::string("LOCALHOST"),
                                    std::string("127.0.0.1"), std::string("127.1.2.3"), std::string(own)})
        EXPECT_EQ(MethodRun("echo", {{"text", "x"}}, "test", host.c_str()).status, 0) << host;
    EXPECT_EQ(tests::content(scratch.path("asked")), "");
}

} // namespace
