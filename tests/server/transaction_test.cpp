// SPDX-License-Identifier: MIT
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "../support/eventually.hpp"
#include "../support/scratch.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm::server;

void wait_for(const std::string &path) {
    tests::eventually([&] { return std::filesystem::exists(path); });
}

// Sends this process a signal as soon as the file is there.
pid_t signal_when(const std::string &path, int signal) {
    const pid_t target = getpid(), child = fork();
    if (child == 0) {
        wait_for(path);
        kill(target, signal);
        _exit(0);
    }
    return child;
}

} // namespace

namespace {

const hostadm::method::Description description{.name = "client/test", .purpose = "none"};

// What a transaction says on standard error when it takes back these entries.
std::string said_of(const std::vector<Written> &entries) {
    hostadm::method::Call call(description);
    Transaction transaction(call, "c1");
    for (const Written &entry : entries)
        transaction.journal().append(entry);
    testing::internal::CaptureStderr();
    transaction.take_back();
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(Transactions, SayThatEverythingIsBack) {
    EXPECT_EQ(said_of({}), "") << "nothing had been done";
    EXPECT_THAT(said_of({written(NewTable{"/none/table"})}),
                testing::HasSubstr("everything that was done for c1 has been taken back"));
}

TEST(Transactions, TakeAnEntryThatTheyDoNotKnowForAFailure) {
    EXPECT_EQ(take_back(Written{"made miracle", "/a"}, {.method = "test"}),
              "a step that this version does not know (made miracle)");
    EXPECT_THAT(said_of({{"made miracle", "/a"}}), testing::Not(testing::HasSubstr("has been taken back")));
}

TEST(Transactions, TakeBackTheLatestFirst) {
    const tests::Scratch scratch;
    Journal journal;
    make_directories(scratch.path("a/b/c"), journal);
    EXPECT_EQ(journal.entries().size(), 3u);
    said_of(journal.entries());
    EXPECT_FALSE(std::filesystem::exists(scratch.path("a"))) << "each was empty when its turn came";
}

TEST(WorkApart, WorkThatReturnsZeroIsDone) {
    EXPECT_TRUE(run_apart([] { return 0; }).done);
    EXPECT_FALSE(run_apart([] { return 5; }).done);
}

TEST(WorkApart, WorkThatCrashesIsTold) {
    const Ending ending = run_apart([] {
        raise(SIGKILL);
        return 0;
    });
    EXPECT_FALSE(ending.done);
    EXPECT_EQ(ending.reason, "ended by SIGKILL");
}

TEST(WorkApart, ASignalEndsTheWorkAndItsCommandsButNotTheCaller) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const tests::Scratch scratch;
        const std::string started = scratch.path("started"), ended = scratch.path("ended");
        const pid_t sender = signal_when(started, signal);
        const Ending ending = run_apart(
            [&] { return std::system(("touch " + started + "; sleep 60; touch " + ended).c_str()); });
        waitpid(sender, nullptr, 0);
        EXPECT_FALSE(ending.done);
        EXPECT_EQ(ending.reason, std::string("interrupted (SIG") + sigabbrev_np(signal) + ")");
        EXPECT_FALSE(std::filesystem::exists(ended));
    }
}

TEST(WorkApart, ACommandThatHoldsOutAgainstTheSignalIsGoneAfterwards) {
    const tests::Scratch scratch;
    const std::string started = scratch.path("started"), late = scratch.path("late");
    const pid_t sender = signal_when(started, SIGTERM);
    run_apart(
        [&] { return std::system(("trap '' TERM; touch " + started + "; sleep 4; touch " + late).c_str()); });
    waitpid(sender, nullptr, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(4300));
    EXPECT_FALSE(std::filesystem::exists(late)) << "it would write into what has been taken back";
}
