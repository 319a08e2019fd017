// SPDX-License-Identifier: MIT
// What a user of the command sees: output, errors and exit status.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>

#include "framework/protocol/bytes.hpp"
#include "support/scratch.hpp"

namespace {

using hostadm::framework::Json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct Seen {
    int status;
    std::string out;
    std::string err;
};

// Runs a command line of the shell; "hostadm" is that of the test installation.
Seen shell(const std::string &line) {
    const tests::Scratch scratch;
    const std::string command = "PATH=" TEST_ROOT "/bin:$PATH; { " + line + "\n} >" + scratch.path("out") +
                                " 2>" + scratch.path("err") + " </dev/null";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, tests::content(scratch.path("out")),
            tests::content(scratch.path("err"))};
}

Seen hostadm(const std::string &words) {
    return shell(std::string("hostadm ").append(words));
}

// Asserts on all three at once.
void expect(const Seen &seen, int status, const std::string &out, const std::string &err) {
    EXPECT_EQ(seen.status, status);
    EXPECT_EQ(seen.out, out);
    EXPECT_EQ(seen.err, err);
}

TEST(RunCommand, PrintsOutputsAndRows) {
    expect(hostadm("run test/echo text=hi times=2 rows=yes"), 0,
           "said  hihi\n"
           "\n"
           "time  text\n"
           "1     hi\n"
           "2     hi\n",
           "");
}

TEST(RunCommand, PrintsOnlyRowsWhereThereAreNoOutputs) {
    expect(hostadm("run test/kinds number=7"), 0,
           "name    value     given\n"
           "word    standard  yes\n"
           "number  7         yes\n",
           "");
}

TEST(RunCommand, PrintsNothingForNothing) {
    expect(hostadm("run test/rows"), 0, "", "");
}

TEST(RunCommand, TakesValuesWithEqualsSignsAndDashes) {
    expect(hostadm("run test/echo text=a=b=c"), 0, "said  a=b=c\n", "");
    expect(hostadm("run test/echo text=--json"), 0, "said  --json\n", "");
    expect(hostadm("run test/echo 'text=two words'"), 0, "said  two words\n", "");
}

TEST(RunCommand, AlignsByWhatIsSeen) {
    const Seen seen = shell("LC_ALL=C.UTF-8 hostadm run test/script host=c greeting=hello");
    EXPECT_EQ(seen.out, "greeting  hello c\n\nword   dash\nhello  -\nc      a=b\n");
    EXPECT_EQ(seen.err, "said by the script\n");
}

TEST(RunCommand, ShowsNothingThatSteersATerminal) {
    expect(hostadm("run test/plain \"bytes=$(printf 'a\\033[2Jb\\nc\\377')\""), 0,
           "bytes  a\\x1b[2Jb\\nc\\xff\n", "");
}

TEST(RunCommand, TakesArgumentsFromAFile) {
    expect(shell("echo '{\"text\": \"a=b\", \"times\": 2}' | hostadm run test/echo --from -"), 0,
           "said  a=ba=b\n", "");
    const tests::Scratch scratch;
    tests::write(scratch.path("arguments"), R"({"text": {"base64": "w6Q="}})");
    expect(hostadm("run test/echo times=2 --from " + scratch.path("arguments")), 0, "said  ää\n", "");
}

TEST(RunCommand, TakesFromAFileWhatNoCommandLineCarries) {
    expect(shell("{ printf '{\"bytes\": \"'; head -c 3000000 /dev/zero | tr '\\0' x; printf '\"}'; } |"
                 "hostadm run test/plain --from - | wc -c"),
           0, "3000008\n", "");
    expect(
        shell(R"(echo '{"text": "a\u0000b"}' | hostadm run test/echo --from -)"), 2, "",
        "hostadm: test/echo: the argument text cannot be \"a?b\"; it must be text on one line, at most 65535 "
        "characters (error 102)\n");
}

TEST(RunCommand, RefusesAFileWithoutArguments) {
    expect(shell("hostadm run test/echo --from /nonexistent"), 2, "",
           "hostadm: --from: the arguments cannot be read from /nonexistent: No such file or directory; "
           "`hostadm run --help` shows how it is used\n");
    for (const char *text : {"", "[]", "7", "{", R"({"text": ["a"]})", R"({"text": null})"})
        expect(
            shell(std::string("echo '") + text + "' | hostadm run test/echo --from -"), 2, "",
            "hostadm: --from: - holds no JSON object {\"NAME\": VALUE} of texts, numbers and truth values; "
            "`hostadm run --help` shows how it is used\n");
    expect(shell(R"(echo '{"text": "a"}' | hostadm run test/echo text=b --from -)"), 2, "",
           "hostadm: test/echo: the argument text is given twice (error 102)\n");
}

TEST(RunCommand, PrintsJson) {
    const Seen seen = hostadm("run test/echo --json text=hi rows=yes");
    EXPECT_EQ(seen.status, 0);
    const Json expected = {
        {"method", "test/echo"},       {"status", "done"},
        {"outputs", {{"said", "hi"}}}, {"rows", Json::array({Json{{"time", "1"}, {"text", "hi"}}})},
        {"errors", Json::array()},     {"half_done", false}};
    EXPECT_EQ(Json::parse(seen.out), expected) << seen.out;
}

TEST(RunCommand, PrintsJsonWhateverAMethodPrints) {
    const Seen seen = hostadm("run --json test/behave how=print");
    EXPECT_EQ(Json::parse(seen.out)["status"], "done");
    EXPECT_EQ(seen.err, "printed by the method\n");
}

TEST(RunCommand, PrintsBytesInJson) {
    const Json json = Json::parse(hostadm("run --json test/plain bytes=$(printf 'a\\377')").out);
    EXPECT_EQ(json["outputs"]["bytes"], (Json{{"base64", "Yf8="}}));
}

TEST(RunCommand, PrintsFailuresInJsonToo) {
    const Seen seen = hostadm("run --json test/behave how=undone");
    EXPECT_EQ(seen.status, 1);
    const Json json = Json::parse(seen.out);
    EXPECT_EQ(json["status"], "failed");
    EXPECT_EQ(json["errors"], Json::array({Json{{"code", 100}, {"text", "stopped halfway"}}}));
    EXPECT_EQ(json["half_done"], true);
    EXPECT_EQ(json["left_undone"], Json::array({"/export/root/c1 is still there"}));
    EXPECT_EQ(seen.err, "hostadm: test/behave: stopped halfway (error 100)\n"
                        "hostadm: test/behave: left half done: /export/root/c1 is still there\n");
}

constexpr const char *behaved = "\nnumber\n1\n";

TEST(RunCommand, SaysWhyAMethodFailed) {
    expect(hostadm("run test/behave how=fail"), 1, std::string("how  fail\n") + behaved,
           "hostadm: test/behave: it was told to (error 100)\n");
}

TEST(RunCommand, SaysEveryErrorInOrder) {
    EXPECT_EQ(hostadm("run test/behave how=fail_twice").err, "hostadm: test/behave: first (error 100)\n"
                                                             "hostadm: test/behave: second (error 92)\n");
}

TEST(RunCommand, SaysNothingOfErrorsPutRight) {
    expect(hostadm("run test/behave how=clear"), 0, std::string("how  clear\n") + behaved, "");
    EXPECT_EQ(hostadm("run test/behave how=clear_then_fail").err,
              "hostadm: test/behave: not put right (error 100)\n");
}

TEST(RunCommand, SaysWhatWasNotedOnTheWay) {
    expect(hostadm("run test/behave how=note"), 0, std::string("how  note\n") + behaved,
           "hostadm: test/behave: note: hello\n");
}

TEST(RunCommand, SaysAHalfDoneChangeInALineOfItsOwn) {
    EXPECT_EQ(hostadm("run test/behave how=dirty").err,
              "hostadm: test/behave: stopped halfway (error 100)\n"
              "hostadm: test/behave: something may be left half done\n");
    EXPECT_EQ(hostadm("run test/behave how=dirty_then_clean").err,
              "hostadm: test/behave: stopped, and undone (error 100)\n");
}

TEST(RunCommand, NamesTheMethodOnce) {
    EXPECT_EQ(hostadm("run test/behave how=empty_method_name").err,
              "hostadm: test/behave: the command failed: false: \n    no (error 92)\n");
}

TEST(RunCommand, LosesNothingOfAMethodThatCrashes) {
    expect(hostadm("run test/behave how=crash"), 1, std::string("how  crash\n") + behaved,
           "hostadm: test/behave: about to crash (error 100)\n"
           "hostadm: test/behave: it was killed by signal 11 (Segmentation fault) (error 101)\n"
           "hostadm: test/behave: something may be left half done\n");
}

TEST(RunCommand, LosesNothingOfAMethodThatHangsUp) {
    expect(hostadm("run test/behave how=exit_early"), 1, std::string("how  exit_early\n") + behaved,
           "hostadm: test/behave: it ended before its work was done (error 101)\n"
           "hostadm: test/behave: something may be left half done\n");
    expect(
        hostadm("run test/behave how=half_a_line"), 1, std::string("how  half_a_line\n") + behaved,
        "hostadm: test/behave: its answer breaks off in the middle of a line: {\"output\": \"late\", \"val "
        "(error 101)\n");
}

TEST(RunCommand, RefusesTheRubbishOfAMethod) {
    expect(hostadm("run test/behave how=rubbish"), 1, std::string("how  rubbish\n") + behaved,
           "hostadm: test/behave: line 4 of its answer cannot be understood: what?is this (error 101)\n");
}

TEST(RunCommand, OutlivesTheKeyboardAndReports) {
    const Seen seen = shell("setsid --wait hostadm run test/script host=c end=interrupt");
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.out, "greeting  hello c\n\nword   dash\nhello  -\nc      a=b\n");
    EXPECT_THAT(seen.err,
                HasSubstr("hostadm: test/script: it was killed by signal 2 (Interrupt) (error 101)\n"));
}

// Starts a command line whose method waits, does something to it ("$p" is its process) when the method is at
// work, and waits for its end.
Seen while_it_waits(const std::string &line, const std::string &then) {
    const tests::Scratch scratch;
    const std::string started = scratch.path("started");
    return shell(line + " started=" + started + " & p=$!\nwhile [ ! -e " + started +
                 " ]; do sleep 0.01; done\n" + then + "\nwait $p");
}

TEST(Signals, SentToTheCommandAloneReachTheMethod) {
    for (const std::string name : {"TERM", "HUP"})
        expect(while_it_waits("hostadm run test/waiting", "kill -" + name + " $p"), 1, "",
               "hostadm: test/waiting: interrupted (" + name + "), and taken back (error 100)\n");
}

TEST(Signals, SentToTheWholeGroupEndTheMethodOnce) {
    const Seen seen = while_it_waits("setsid hostadm run test/waiting", "kill -TERM -$p");
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.out, "");
    // What stands before it is the shell's, whose sleep was ended too.
    EXPECT_THAT(seen.err,
                EndsWith("hostadm: test/waiting: interrupted (TERM), and taken back (error 100)\n"));
    EXPECT_EQ(seen.err.find("taken back"), seen.err.rfind("taken back"));
}

TEST(Signals, OfAMethodThatDoesNotBearThemAreReported) {
    expect(while_it_waits("hostadm run test/waiting on_signal=die", "kill -HUP $p"), 1, "",
           "hostadm: test/waiting: it was killed by signal 1 (Hangup) (error 101)\n"
           "hostadm: test/waiting: something may be left half done\n");
}

TEST(Signals, ThatAMethodOutlivesLeaveItsResults) {
    expect(while_it_waits("hostadm run test/waiting on_signal=finish", "kill -TERM $p"), 0, "finished  yes\n",
           "");
}

TEST(Signals, ThatWereIgnoredStayIgnored) {
    expect(while_it_waits("trap '' HUP; hostadm run test/waiting", "kill -HUP $p; sleep 0.3; kill -TERM $p"),
           1, "", "hostadm: test/waiting: interrupted (TERM), and taken back (error 100)\n");
}

TEST(Signals, ThatComeWhileAScriptDescribesItselfEndTheRun) {
    expect(shell("hostadm run slow/hanging_description & p=$!; sleep 1; kill -TERM $p; wait $p"), 1, "",
           "hostadm: slow/hanging_description: asked to describe itself, it was killed by signal 15 "
           "(Terminated) (error 101)\n");
}

// One line, status 2, nothing done.
void expect_refused(const std::string &words, const std::string &line) {
    expect(hostadm(words), 2, "", std::string("hostadm: ").append(line).append("\n"));
}

TEST(BadInput, UnknownMethod) {
    expect_refused("run test/eko text=x",
                   "test/eko: there is no method test/eko; did you mean test/echo? (error 102)");
    expect_refused("run echo text=x",
                   "echo: there are several methods echo: other/echo and test/echo; give the class "
                   "too (error 102)");
    expect_refused("run ../../bin/hostadm",
                   "../../bin/hostadm: there is no method ../../bin/hostadm; `hostadm list` "
                   "shows them all (error 102)");
    expect_refused("help test/eko",
                   "test/eko: there is no method test/eko; did you mean test/echo? (error 102)");
}

TEST(BadInput, UnknownCommand) {
    expect_refused("lsit", "there is no command lsit; did you mean list?");
    expect_refused("preveiw client/list", "there is no command preveiw; did you mean preview?");
}

TEST(BadInput, MethodOfAWrongClass) {
    expect_refused("run tset/kinds",
                   "tset/kinds: there is no method tset/kinds; did you mean test/kinds? (error 102)");
    expect_refused("run wrong/kinds",
                   "wrong/kinds: there is no method wrong/kinds; did you mean test/kinds? (error 102)");
}

TEST(BadInput, UnknownArgument) {
    expect_refused("run test/echo txt=x",
                   "test/echo: there is no argument \"txt\"; did you mean text? (error 102)");
}

TEST(BadInput, MissingArgument) {
    expect_refused("run test/echo",
                   "test/echo: the argument text is missing; it must be text on one line, at most "
                   "65535 characters (error 102)");
}

TEST(BadInput, ArgumentThatIsNone) {
    expect_refused("run test/echo text",
                   "test/echo: \"text\" is no argument; arguments are given as NAME=VALUE (error 102)");
    expect_refused("run test/echo =x",
                   "test/echo: \"=x\" is no argument; arguments are given as NAME=VALUE (error 102)");
    expect_refused("run test/echo text=a text=b", "test/echo: the argument text is given twice (error 102)");
}

TEST(BadInput, InvalidHostName) {
    for (const char *host : {"bad_host!", "a b", "-c1", "a..b", "$(reboot)"}) {
        const Seen seen = hostadm("run test/kinds 'host=" + std::string(host) + "'");
        expect(seen, 2, "",
               "hostadm: test/kinds: the argument host cannot be \"" + std::string(host) +
                   "\"; it must be a host name of letters, digits, \"-\", \"_\" and \".\", beginning with a "
                   "letter or "
                   "digit, at most 255 characters (error 102)\n");
    }
}

TEST(BadInput, PathWithShellMetacharacters) {
    for (const char *path :
         {"/a;reboot", "/a$(reboot)", "/a`reboot`", "/a|b", "/a b", "/a>b", "/a*", "/a&", "/a\"b"}) {
        const Seen seen = hostadm("run test/kinds 'path=" + std::string(path) + "'");
        EXPECT_EQ(seen.status, 2) << path;
        EXPECT_EQ(seen.out, "");
        EXPECT_THAT(seen.err,
                    StartsWith("hostadm: test/kinds: the argument path cannot be \"" + std::string(path) +
                               "\"; it must be an absolute path without blanks"));
    }
}

TEST(BadInput, ForAScriptIsRefusedBeforeItRuns) {
    const Seen seen = hostadm("run test/script 'host=a;b'");
    EXPECT_EQ(seen.status, 2);
    EXPECT_THAT(seen.err, Not(HasSubstr("said by the script")));
}

TEST(BadInput, WrongUsage) {
    for (const char *words : {"bogus", "run", "run --bogus test/echo", "list --bogus", "list a b", "arg",
                              "arg bogus", "--bogus"}) {
        const Seen seen = hostadm(words);
        EXPECT_EQ(seen.status, 2) << words;
        EXPECT_EQ(seen.out, "") << words;
        EXPECT_THAT(seen.err, StartsWith("hostadm: ")) << words;
        EXPECT_EQ(seen.err.find('\n'), seen.err.size() - 1) << words;
    }
}

TEST(BadInput, ForgottenRun) {
    expect_refused("test/echo text=x",
                   "test/echo is a method; `hostadm run test/echo NAME=VALUE...` runs it");
    expect_refused("rows", "rows is a method; `hostadm run rows NAME=VALUE...` runs it");
}

TEST(BadInput, PointsToTheHelpOfItsCommand) {
    EXPECT_THAT(hostadm("run --bogus test/echo").err,
                EndsWith("; `hostadm run --help` shows how it is used\n"));
    EXPECT_THAT(hostadm("bogus").err, EndsWith("; `hostadm --help` shows how it is used\n"));
    expect_refused("arg bogus", "arg: it takes get, set, row, error or undone, not \"bogus\"");
    expect_refused("arg", "arg: it takes get, set, row, error or undone");
}

TEST(BadInput, HostWithoutAName) {
    const Seen seen = hostadm("run --host '' test/echo text=x");
    EXPECT_EQ(seen.status, 2);
    EXPECT_EQ(seen.out, "");
    EXPECT_THAT(seen.err,
                StartsWith("hostadm: --host: the host has no name; leave the option out to run it here"));
}

TEST(BadInput, HostThatIsNone) {
    const Seen seen = hostadm("run --host=-oProxyCommand=reboot test/echo text=x");
    EXPECT_EQ(seen.status, 2);
    EXPECT_THAT(seen.err, HasSubstr("the host cannot be \"-oProxyCommand=reboot\"; it must be a host name"));
}

TEST(ListCommand, ShowsALineForEachMethod) {
    const Seen seen = hostadm("list other");
    expect(seen, 0, "METHOD      PURPOSE\nother/echo  the other echo\n", "");
    const Seen all = hostadm("list test");
    EXPECT_THAT(all.out, HasSubstr("test/echo                 say a text back\n"));
    EXPECT_THAT(all.out,
                HasSubstr("test/failing_description  (asked to describe itself, it ended with exit status\n"
                          "                          4)\n"));
    std::istringstream lines(all.out + hostadm("list slow").out);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 80u) << line;
    EXPECT_THAT(shell("COLUMNS=120 hostadm list test").out, HasSubstr("it ended with exit status 4)\n"));
}

TEST(ListCommand, PrintsJson) {
    EXPECT_EQ(Json::parse(hostadm("list --json other").out), Json::array({Json{{"method", "other/echo"},
                                                                               {"purpose", "the other echo"},
                                                                               {"arguments", Json::array()},
                                                                               {"outputs", Json::array()},
                                                                               {"columns", Json::array()}}}));
}

TEST(ListCommand, PrintsWhatEachMethodTakesAsJson) {
    const Json all = Json::parse(hostadm("list --json test").out);
    const auto called = [&all](const char *name) {
        return *std::find_if(all.begin(), all.end(),
                             [name](const Json &method) { return method["method"] == name; });
    };
    EXPECT_EQ(called("test/failing_description")["purpose"],
              "(asked to describe itself, it ended with exit status 4)");
    const Json echo = called("test/echo");
    EXPECT_EQ(echo["arguments"][1], (Json{{"name", "times"},
                                          {"kind", "number"},
                                          {"purpose", "how often"},
                                          {"required", false},
                                          {"default", "1"}}));
    EXPECT_EQ(echo["outputs"],
              Json::array(
                  {Json{{"name", "said"}, {"purpose", "the text, as often as wanted"}, {"required", true}}}));
    EXPECT_EQ(Json::parse(hostadm("help --json test/echo").out), echo);
    EXPECT_EQ(hostadm("help --json test").out, hostadm("list --json test").out);
    expect_refused("help --json run",
                   "run: there is no method run; `hostadm list` shows them all (error 102)");
}

TEST(ListCommand, RefusesAnUnknownClass) {
    expect_refused("list bogus", "bogus: there is no such class; there are other, slow, test (error 102)");
}

TEST(HelpCommand, SaysWhatAMethodTakes) {
    expect(hostadm("help test/echo"), 0,
           "test/echo: say a text back\n"
           "\n"
           "Usage: hostadm run test/echo text=text [times=number] [rows=yes_no]\n"
           "\n"
           "Arguments:\n"
           "  text   what to say; text on one line, at most 65535 characters (required)\n"
           "  times  how often; a decimal number, not negative (default: 1)\n"
           "  rows   a row for each time; yes or no (default: no)\n"
           "\n"
           "Outputs:\n"
           "  said  the text, as often as wanted\n"
           "\n"
           "Columns of its rows:\n"
           "  time  a number\n"
           "  text  the text\n",
           "");
    EXPECT_EQ(shell(TEST_ROOT "/libexec/hostadm/methods/test/echo --help").out,
              hostadm("help test/echo").out);
}

TEST(HelpCommand, ShowsTheMethodsOfAClass) {
    expect(hostadm("help other"), 0, "METHOD      PURPOSE\nother/echo  the other echo\n", "");
    EXPECT_EQ(hostadm("help oth").status, 2);
}

TEST(HelpCommand, IsThereForEveryCommand) {
    for (const char *command : {"list", "help", "run", "preview", "status", "arg"}) {
        const Seen seen = hostadm(std::string(command) + " --help");
        EXPECT_EQ(seen.status, 0) << command;
        EXPECT_THAT(seen.out, HasSubstr(std::string("Usage: hostadm ") + command)) << command;
        EXPECT_EQ(hostadm(std::string("help ") + command).out, seen.out) << command;
    }
    EXPECT_THAT(hostadm("--help").out, HasSubstr("Exit status: 0 done, 1 the method failed, 2 wrong usage"));
    EXPECT_EQ(hostadm("").out, hostadm("--help").out);
    EXPECT_EQ(hostadm("help").out, hostadm("--help").out);
    expect(hostadm("--version"), 0, "hostadm 1.0.0\n", "");
}

TEST(HelpCommand, NamesWhatIsTyped) {
    const std::string help = shell("COLUMNS=80 hostadm run --help").out;
    EXPECT_THAT(help, HasSubstr("Usage: hostadm run [OPTIONS] CLASS/METHOD [NAME=VALUE...]\n"));
    EXPECT_THAT(help, HasSubstr("\n  CLASS/METHOD "));
    EXPECT_THAT(help, HasSubstr("\n  --sudo   "));
    EXPECT_THAT(help, HasSubstr("begin;\n" + std::string(30, ' ') + "30 if not said\n"))
        << "what goes on in another line stands below its beginning";
    expect(hostadm("run"), 2, "",
           "hostadm: CLASS/METHOD is required; `hostadm run --help` shows how it is used\n");
}

TEST(HelpCommand, TellsOfATopic) {
    const std::string whole = hostadm("help").out;
    for (const char *topic : {"clients", "services", "booting", "checks", "exit-status"}) {
        const Seen seen = hostadm(std::string("help ") + topic);
        EXPECT_THAT(seen.out, StartsWith(std::string(topic) + ": ")) << topic;
        EXPECT_THAT(whole, HasSubstr(std::string("\n  ") + topic + " ")) << "the list of topics";
        EXPECT_THAT(hostadm("complete zsh hostadm help " + std::string(topic)).out, HasSubstr(topic));
    }
    EXPECT_EQ(hostadm("help clients").status, 0);
}

TEST(HelpCommand, NamesOnlyMethodsThatThereAre) {
    const std::string methods = shell(BUILD_ROOT "/bin/hostadm list").out;
    static const std::regex method("[a-z]+/[a-z_]+");
    for (const char *topic : {"clients", "services", "booting", "checks", "exit-status"}) {
        const std::string text = hostadm(std::string("help ") + topic).out;
        for (std::sregex_token_iterator word(text.begin(), text.end(), method), end; word != end; ++word)
            if (!word->str().starts_with("etc/")) {
                EXPECT_THAT(methods, HasSubstr("\n" + word->str() + " ")) << topic;
            }
    }
}

TEST(HelpCommand, SaysWhatWasMeant) {
    expect_refused(
        "help cleints",
        "cleints: there is no such command, topic, class or method; did you mean clients? (error 102)");
    expect_refused(
        "help bootng",
        "bootng: there is no such command, topic, class or method; did you mean booting? (error 102)");
    expect_refused(
        "help prevew",
        "prevew: there is no such command, topic, class or method; did you mean preview? (error 102)");
    expect_refused("list tset", "tset: there is no such class; did you mean test? (error 102)");
    EXPECT_THAT(hostadm("run --jsn test/echo").err, EndsWith("; did you mean --json?\n"));
    EXPECT_THAT(hostadm("run test/kinds choice=gren").err,
                EndsWith("it must be red, green or blue; did you mean green? (error 102)\n"));
}

TEST(HelpCommand, OfAMethodIsShownWhereItIsToRun) {
    for (const char *words : {"run test/echo --help", "preview --help test/echo", "run test/echo text=x -h"})
        EXPECT_EQ(hostadm(words).out, hostadm("help test/echo").out) << words;
}

// Every text that `hostadm help` and --help show in the real installation.
TEST(HelpCommand, FitsATerminalOf80Columns) {
    const auto narrow = [](const std::string &words) {
        const Seen seen =
            shell(std::string("LC_ALL=C.UTF-8 COLUMNS=80 " BUILD_ROOT "/bin/hostadm ").append(words));
        EXPECT_EQ(seen.status, 0) << words << seen.err;
        EXPECT_NE(seen.out, "") << words;
        std::istringstream lines(seen.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 80u) << words << ": " << line;
    };
    for (const char *words :
         {"help", "list", "help clients", "help services", "help booting", "help checks", "help exit-status"})
        narrow(words);
    for (const char *command :
         {"list", "help", "run", "preview", "status", "check", "rehearse", "watch", "arg"})
        narrow(std::string(command) + " --help");
    for (const Json &method : Json::parse(shell(BUILD_ROOT "/bin/hostadm list --json").out))
        narrow("help " + method["method"].get<std::string>());
}

TEST(ArgCommand, IsRefusedOutsideAMethod) {
    for (const char *words :
         {"arg get a", "arg set a b", "arg row a=b", "arg error 1 text", "arg undone text"})
        expect(hostadm(words), 1, "",
               "hostadm: arg: there is no method to answer for; only a method that `hostadm run` has started "
               "has "
               "arguments and an answer\n");
    // Open descriptors of these numbers do not make a method of it.
    EXPECT_EQ(shell("hostadm arg set a b 3</dev/null 4>/dev/null").status, 1);
}

TEST(ArgCommand, RefusesWhatItCannotUse) {
    for (const char *words :
         {"arg get", "arg get a b", "arg set", "arg set a", "arg set 'a b' c", "arg set a b c", "arg row",
          "arg row a", "arg row =b", "arg error", "arg error x y", "arg error 1", "arg undone"}) {
        const Seen seen = hostadm(words);
        EXPECT_EQ(seen.status, 2) << words;
        EXPECT_THAT(seen.err, StartsWith("hostadm: arg: ")) << words;
    }
}

TEST(Output, ThatCannotBeWrittenIsAFailure) {
    for (const char *words : {"run test/rows rows=10", "run test/rows rows=100000", "run --json test/rows"})
        expect(shell(std::string("hostadm ") + words + " >/dev/full"), 1, "",
               "hostadm: the method was done, but its results cannot be written: No space left on device\n");
    expect(shell("hostadm run test/rows rows=10 >&-"), 1, "",
           "hostadm: the method was done, but its results cannot be written: Bad file descriptor\n");
    expect(shell("hostadm list other >/dev/full"), 1, "",
           "hostadm: the results cannot be written: No space left on device\n");
    expect(shell("hostadm --help >/dev/full"), 1, "",
           "hostadm: the results cannot be written: No space left on device\n");
}

TEST(Output, ThatCannotBeWrittenDoesNotHideAFailure) {
    expect(shell("hostadm run test/behave how=fail >/dev/full"), 1, "",
           "hostadm: test/behave: it was told to (error 100)\n"
           "hostadm: the results cannot be written: No space left on device\n");
    expect(shell("hostadm run test/behave how=note >/dev/full"), 1, "",
           "hostadm: test/behave: note: hello\n"
           "hostadm: the method was done, but its results cannot be written: No space left on device\n");
}

TEST(ServeCommand, RefusesARequestThatIsNestedWithoutEnd) {
    const std::string start = "printf '{\"hostadm\":1,\"method\":\"test/echo\",\"arguments\":{\"text\":'; ";
    for (const std::string nested : {"yes '[' | head -c 200000", "yes '{\"a\":' | head -c 500000"}) {
        const Seen seen = shell("{ " + start + nested + "; } | hostadm serve");
        EXPECT_EQ(seen.status, 2);
        EXPECT_THAT(seen.err, HasSubstr("there is no request on standard input"));
    }
}

TEST(ServeCommand, RefusesWhatIsNoRequest) {
    EXPECT_EQ(hostadm("serve").status, 2);
    EXPECT_EQ(shell("echo rubbish | hostadm serve").status, 2);
}

// A request for the method that waits, ended as `how` says.
Seen served(const std::string &output, const std::string &how) {
    const tests::Scratch scratch;
    const std::string started = scratch.path("started");
    const std::string request =
        scratch.write("request", R"({"hostadm": 1, "method": "test/waiting", "arguments": {"started": ")" +
                                     started + R"("}})");
    return shell("mkfifo " + scratch.path("pipe") + "\nsleep 60 <" + scratch.path("pipe") +
                 " & reader=$!\nhostadm serve <" + request + " >" +
                 (output.empty() ? "/dev/stdout" : scratch.path(output)) + " & p=$!\nwhile [ ! -e " +
                 started + " ]; do sleep 0.01; done\n" + how + "\nwait $p; status=$?; cat " + started +
                 " >&2; kill $reader 2>/dev/null; exit $status");
}

TEST(ServeCommand, PassesSignalsOnAndAnswers) {
    const Seen seen = served("", "kill -TERM $p");
    EXPECT_EQ(seen.status, 1);
    EXPECT_THAT(seen.out, HasSubstr("interrupted (TERM), and taken back"));
    EXPECT_THAT(seen.out, HasSubstr("\"outcome\":1"));
}

TEST(ServeCommand, EndsTheMethodWhenTheConnectionIsGone) {
    const Seen seen = served("pipe", "kill $reader");
    EXPECT_NE(seen.status, 0);
    EXPECT_THAT(seen.err, HasSubstr("HUP"));
}

// The methods of the product describe themselves soundly,
// and every one has its manual page.
TEST(Descriptions, MakeManualPagesThatRender) {
    const std::string share = BUILD_ROOT "/share";
    const std::string methods = shell(BUILD_ROOT "/bin/hostadm list --json").out;
    for (const Json &entry : Json::parse(methods)) {
        std::string name = entry["method"];
        EXPECT_THAT(entry["purpose"].get<std::string>(), Not(StartsWith("("))) << name;
        name[name.find('/')] = '-';
        const std::string page = share + "/man/man8/hostadm-" + name + ".8";
        const Seen shown = shell("LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l " + page);
        EXPECT_EQ(shown.status, 0) << page;
        EXPECT_EQ(shown.err, "") << page;
        EXPECT_THAT(shown.out, HasSubstr("EXIT STATUS")) << page;
    }
    const Seen shown = shell("LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l " + share + "/man/man1/hostadm.1");
    EXPECT_EQ(shown.err, "");
    EXPECT_THAT(shown.out, HasSubstr("hostadm - keep the network-boot side of a server in order"));
}

// The words of an example are what the method takes.
TEST(Descriptions, MakeExamplesThatAreAccepted) {
    for (const Json &entry : Json::parse(shell(BUILD_ROOT "/bin/hostadm list --json").out)) {
        const std::string method = entry["method"];
        std::string page = method;
        page[page.find('/')] = '-';
        const std::string shown =
            shell("LC_ALL=C MANWIDTH=80 man -l " BUILD_ROOT "/share/man/man8/hostadm-" + page +
                  ".8 | col -b | sed -n '/^EXAMPLES/,/^SEE/p' | sed ':a;/\\\\$/{N;s/\\\\\\n *//;ba}'")
                .out;
        EXPECT_THAT(shown, HasSubstr("hostadm run " + method)) << method;
        const std::string help = shell(BUILD_ROOT "/bin/hostadm help " + method).out;
        static const std::regex word("([a-z_]+)=");
        for (std::sregex_iterator one(shown.begin(), shown.end(), word), end; one != end; ++one)
            EXPECT_THAT(help, HasSubstr((*one)[1].str() + "=")) << method;
    }
}

TEST(Descriptions, MakePagesAgainBesideThoseOfOthers) {
    const tests::Scratch scratch;
    const std::string gone = scratch.write("share/man/man8/hostadm-old-method.8", "");
    const std::string of_others = scratch.write("share/man/man8/hostadm-nfsd.8", "");
    shell("hostadm generate " + scratch.path("share"));
    EXPECT_FALSE(std::filesystem::exists(gone));
    EXPECT_TRUE(std::filesystem::exists(of_others));
    EXPECT_TRUE(std::filesystem::exists(scratch.path("share/man/man8/hostadm-test-echo.8")));
}

// The words of a text that begin with two dashes.
std::set<std::string> options_in(const std::string &text) {
    static const std::regex option("--[a-z][a-z-]*");
    return {std::sregex_token_iterator(text.begin(), text.end(), option), std::sregex_token_iterator()};
}

TEST(Descriptions, AndTheCompletionAndTheManualPageKnowEveryOption) {
    const tests::Scratch scratch;
    shell("hostadm generate " + scratch.path("share"));
    const std::string page =
        shell("MANWIDTH=400 LC_ALL=C man -l " + scratch.path("share/man/man1/hostadm.1") + " | col -b").out;
    for (const char *command :
         {"list", "help", "run", "preview", "status", "check", "rehearse", "watch", "arg"}) {
        const std::set<std::string> known = options_in(hostadm(std::string(command) + " --help").out);
        EXPECT_THAT(known, testing::Contains("--help")) << command;
        EXPECT_EQ(options_in(hostadm("complete zsh hostadm " + std::string(command) + " --").out), known)
            << command;
        const std::size_t synopsis = page.find(std::string("hostadm ") + command);
        ASSERT_NE(synopsis, page.npos) << command;
        std::set<std::string> told =
            options_in(page.substr(synopsis, page.find_first_of("\n", synopsis) - synopsis));
        told.insert("--help");
        EXPECT_EQ(told, known) << command;
    }
}

} // namespace
