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
#include "server/client_lock.hpp"
#include "server/undo.hpp"

namespace {

using hostadm::server::ClientLock;
using hostadm::server::Ending;
using hostadm::server::Journal;
using hostadm::server::run_apart;
using testing::ElementsAre;
using testing::IsEmpty;

using Entry = std::vector<std::string>;

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

TEST(Undo, AJournalOutlivesTheProcessThatWritesIt) {
    Journal journal;
    EXPECT_THAT(journal.entries(), IsEmpty());
    const Ending ending = run_apart([&] {
        journal.note({"directory", "/a b"});
        journal.note({"line", "/etc/hosts", "10.0.0.1", "c1"});
        std::exit(1);
        return 0;
    });
    EXPECT_FALSE(ending.done);
    EXPECT_EQ(ending.reason, "") << "it has recorded its error itself";
    EXPECT_THAT(journal.entries(),
                ElementsAre(Entry{"directory", "/a b"}, Entry{"line", "/etc/hosts", "10.0.0.1", "c1"}));
}

TEST(Undo, AJournalOfManyEntriesIsReadWhole) {
    Journal journal;
    for (int i = 0; i < 2000; ++i)
        journal.note({"file", "/export/swap/client" + std::to_string(i)});
    EXPECT_EQ(journal.entries().size(), 2000u);
    EXPECT_EQ(journal.entries().back().at(1), "/export/swap/client1999");
}

TEST(Undo, WorkThatReturnsZeroIsDone) {
    EXPECT_TRUE(run_apart([] { return 0; }).done);
    EXPECT_FALSE(run_apart([] { return 5; }).done);
}

TEST(Undo, WorkThatCrashesIsTold) {
    const Ending ending = run_apart([] {
        raise(SIGKILL);
        return 0;
    });
    EXPECT_FALSE(ending.done);
    EXPECT_EQ(ending.reason, "ended by SIGKILL");
}

TEST(Undo, ASignalEndsTheWorkAndItsCommandsButNotTheCaller) {
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

TEST(Undo, ACommandThatHoldsOutAgainstTheSignalIsGoneAfterwards) {
    const tests::Scratch scratch;
    const std::string started = scratch.path("started"), late = scratch.path("late");
    const pid_t sender = signal_when(started, SIGTERM);
    run_apart(
        [&] { return std::system(("trap '' TERM; touch " + started + "; sleep 4; touch " + late).c_str()); });
    waitpid(sender, nullptr, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(4300));
    EXPECT_FALSE(std::filesystem::exists(late)) << "it would write into what has been taken back";
}

// Of this run alone: locks are held by name, in the whole system.
const std::string name = "c" + std::to_string(getpid()) + "-";

TEST(ClientLocks, OneProcessAtATimeWorksOnAClient) {
    const std::string long_name = name + std::string(255 - name.size(), 'c');
    const auto first = std::make_unique<ClientLock>(name + "c1");
    EXPECT_THROW(ClientLock("C" + name.substr(1) + "C1"), std::runtime_error) << "names differ in case only";
    EXPECT_NO_THROW(ClientLock(name + "c2"));
    EXPECT_NO_THROW(ClientLock{long_name}) << "the longest host name";
    const ClientLock longest(long_name);
    EXPECT_THROW(ClientLock{long_name}, std::runtime_error);
}

TEST(ClientLocks, ALockGoesWithItsHolder) {
    { const ClientLock held(name + "c3"); }
    EXPECT_NO_THROW(ClientLock(name + "c3"));
}
