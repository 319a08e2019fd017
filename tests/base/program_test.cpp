// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
