// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/program.hpp"
#include "support/scratch.hpp"

using namespace hostadm::base;

namespace {

Answer shell(const std::string &command, Errors errors = Errors::apart, std::size_t limit = 1 << 20) {
    return run_and_listen({.words = {"/bin/sh", "-c", command}, .time_limit = 60}, errors, limit);
}

} // namespace

TEST(Program, IsHeardOnBothStreams) {
    const Answer answer = shell("echo out; echo err >&2; exit 3");
    EXPECT_EQ(answer.output, "out\n");
    EXPECT_EQ(answer.errors, "err\n");
    EXPECT_EQ(answer.ending.exit_status, 3);
    EXPECT_FALSE(answer.ending.well());
}

TEST(Program, IsHeardInOrderWhenItsStreamsAreKeptTogether) {
    EXPECT_EQ(shell("echo 1; echo 2 >&2; echo 3", Errors::with_output).output, "1\n2\n3\n");
}

TEST(Program, ThatTalksMuchOnOneStreamAfterTheOtherDoesNotStall) {
    const Answer answer = shell("head -c 300000 /dev/zero >&2; head -c 300000 /dev/zero");
    EXPECT_EQ(answer.output.size(), 300'000u);
    EXPECT_EQ(answer.errors.size(), 300'000u);
}

TEST(Program, IsHeardUpToTheLimitAndStillEndsByItself) {
    const Answer answer = shell("head -c 300000 /dev/zero; echo done >&2", Errors::apart, 1000);
    EXPECT_EQ(answer.output.size(), 1000u);
    EXPECT_EQ(answer.errors, "done\n");
    EXPECT_TRUE(answer.ending.well());
}

TEST(Program, IsNotWaitedForOnceOnlyItsDaemonIsLeft) {
    tests::Scratch scratch;
    const Answer answer = shell("sleep 3600 & echo $! > " + scratch.path("pid") + "; echo started");
    EXPECT_TRUE(answer.ending.well());
    EXPECT_EQ(answer.output, "started\n");
    shell("kill $(cat " + scratch.path("pid") + ")");
}

TEST(Program, ReadsTheInputThatItIsGiven) {
    const std::string text(200'000, 'x');
    EXPECT_EQ(run_and_listen({.words = {"/bin/cat"}, .input = text}).output, text);
    EXPECT_EQ(run_and_listen({.words = {"/bin/cat"}}).output, "");
}

TEST(Program, StartsInTheDirectoryThatItIsGiven) {
    EXPECT_EQ(run_and_listen({.words = {"/bin/pwd"}, .directory = "/usr"}).output, "/usr\n");
}

TEST(Program, SeesTheEnvironmentThatItIsGiven) {
    setenv("HOSTADM_TEST", "seen", 1);
    EXPECT_EQ(run_and_listen({.words = {"/usr/bin/env"}, .environment = {{"A=1"}}}).output, "A=1\n");
    EXPECT_THAT(run_and_listen({.words = {"/usr/bin/env"}}).output, testing::HasSubstr("HOSTADM_TEST=seen"));
    unsetenv("HOSTADM_TEST");
}

TEST(Program, TellsApartHowItEnded) {
    EXPECT_TRUE(run({.words = {"/no/such/program"}}).not_found());
    EXPECT_TRUE(run({.words = {"no-such-program-of-hostadm"}, .search = true}).not_found());
    const Ending refused = run({.words = {"/etc/passwd"}});
    EXPECT_EQ(refused.start_error, EACCES);
    EXPECT_FALSE(refused.not_found());
    EXPECT_EQ(shell("kill -KILL $$").ending.signal, SIGKILL);
    const Answer slow =
        run_and_listen({.words = {"/bin/sh", "-c", "echo begun; sleep 3600"}, .time_limit = 1});
    EXPECT_TRUE(slow.ending.timed_out);
    EXPECT_EQ(slow.output, "begun\n");
}

namespace {

// What each of several programs said, and how it ended.
struct Crowd {
    struct Seen {
        std::string output, errors;
        Ending ending;
        bool ended = false;
    };

    explicit Crowd(const std::vector<std::string> &commands) : seen(commands.size()) {
        for (std::size_t at = 0; at < commands.size(); ++at)
            companions.push_back(
                {.program = {.words = {"/bin/sh", "-c", commands[at]}},
                 .hear =
                     [this, at](int stream, std::string_view piece) {
                         (stream == STDOUT_FILENO ? seen[at].output : seen[at].errors).append(piece);
                         return seen[at].output.size() < most;
                     },
                 .deadline = [this] { return deadline; },
                 .ended =
                     [this, at](const Ending &ending) {
                         EXPECT_FALSE(seen[at].ended) << "told twice";
                         seen[at].ending = ending;
                         seen[at].ended = true;
                     }});
    }

    std::vector<Companion> companions;
    std::vector<Seen> seen;
    std::size_t most = 1 << 20;
    std::optional<std::chrono::steady_clock::time_point> deadline;
};

} // namespace

TEST(ProgramsTogether, AreEachHeardAndToldApart) {
    Crowd crowd({"echo one; echo wrong >&2", "exit 3", "kill -KILL $$"});
    crowd.companions.push_back(crowd.companions[0]);
    crowd.companions.back().program.words = {"/no/such/program"};
    int error = 0;
    crowd.companions.back().ended = [&](const Ending &ending) { error = ending.start_error; };
    run_together(crowd.companions, 2);
    EXPECT_EQ(crowd.seen[0].output, "one\n");
    EXPECT_EQ(crowd.seen[0].errors, "wrong\n");
    EXPECT_TRUE(crowd.seen[0].ending.well());
    EXPECT_EQ(crowd.seen[1].ending.exit_status, 3);
    EXPECT_EQ(crowd.seen[2].ending.signal, SIGKILL);
    EXPECT_EQ(error, ENOENT);
}

TEST(ProgramsTogether, AreNeverMoreAtOnceThanWanted) {
    tests::Scratch scratch;
    const std::string counted =
        "cd " + scratch.path("") + "; : >$$; ls | grep -c '^[0-9]' >&2; sleep 0.2; rm $$";
    Crowd crowd({counted, counted, counted, counted, counted});
    run_together(crowd.companions, 2);
    std::string most;
    for (const Crowd::Seen &one : crowd.seen)
        most = std::max(most, one.errors);
    EXPECT_EQ(most, "2\n");
}

TEST(ProgramsTogether, RunBesideEachOther) {
    tests::Scratch scratch;
    // Each waits for the other.
    const std::string meet = "cd " + scratch.path("") + "; : >$0; until [ -e $1 ]; do sleep 0.05; done";
    Crowd crowd({"", ""});
    crowd.companions[0].program.words = {"/bin/sh", "-c", meet, "a", "b"};
    crowd.companions[1].program.words = {"/bin/sh", "-c", meet, "b", "a"};
    run_together(crowd.companions, 2);
    EXPECT_TRUE(crowd.seen[0].ending.well());
    EXPECT_TRUE(crowd.seen[1].ending.well());
}

TEST(ProgramsTogether, AreEndedWhenTheirTimeIsUpEvenWhenTheyDoNotListen) {
    Crowd crowd({"echo begun; trap '' TERM; while :; do sleep 1; done",
                 "trap 'echo left; exit 0' TERM; "
                 "echo begun; while :; do sleep 0.1; done"});
    crowd.deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    run_together(crowd.companions, 2);
    EXPECT_TRUE(crowd.seen[0].ending.timed_out);
    EXPECT_EQ(crowd.seen[0].ending.signal, SIGKILL);
    EXPECT_TRUE(crowd.seen[1].ending.timed_out);
    EXPECT_EQ(crowd.seen[1].output, "begun\nleft\n");
}

TEST(ProgramsTogether, AreEndedWhenTheyHaveSaidEnough) {
    Crowd crowd({"yes"});
    crowd.most = 100'000;
    run_together(crowd.companions, 1);
    EXPECT_FALSE(crowd.seen[0].ending.well());
    EXPECT_FALSE(crowd.seen[0].ending.timed_out);
    EXPECT_LT(crowd.seen[0].output.size(), 300'000u);
}

TEST(ProgramsTogether, AreNotStartedAfterASignalThatTheOthersGot) {
    const SignalsPassedOn passed_on;
    Crowd crowd({"(kill -TERM $PPID); sleep 60", "echo started"});
    run_together(crowd.companions, 1);
    EXPECT_EQ(crowd.seen[0].ending.signal, SIGTERM);
    EXPECT_EQ(crowd.seen[1].ending.signal, SIGTERM);
    EXPECT_EQ(crowd.seen[1].output, "");
}
