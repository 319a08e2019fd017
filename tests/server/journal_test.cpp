// SPDX-License-Identifier: MIT
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <variant>

#include "../support/scratch.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/journal.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm::server;
using testing::IsEmpty;

volatile std::sig_atomic_t signals_taken = 0;

} // namespace

TEST(Journals, OutliveTheProcessThatWritesThem) {
    Journal journal;
    EXPECT_THAT(journal.entries(), IsEmpty());
    const Ending ending = run_apart([&] {
        journal.note(MadeDirectory{"/a b", {1, 2, 3}});
        journal.note(AddedLine{"/etc/hosts", "10.0.0.1\tc1\n"});
        std::exit(1);
        return 0;
    });
    EXPECT_FALSE(ending.done);
    EXPECT_EQ(ending.reason, "") << "it has recorded its error itself";
    const auto entries = journal.entries();
    ASSERT_EQ(entries.size(), 2u);
    const auto directory = read_entry<MadeDirectory>(entries[0]);
    ASSERT_TRUE(directory);
    EXPECT_EQ(directory->path, "/a b");
    EXPECT_EQ(directory->identity, (FileIdentity{1, 2, 3}));
    const auto line = read_entry<AddedLine>(entries[1]);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->line, "10.0.0.1\tc1\n") << "a field may hold any byte";
}

TEST(Journals, OfManyEntriesAreReadWhole) {
    Journal journal;
    for (int i = 0; i < 2000; ++i)
        journal.note(NewTable{"/etc/table" + std::to_string(i)});
    EXPECT_EQ(journal.entries().size(), 2000u);
    EXPECT_EQ(read_entry<NewTable>(journal.entries().back())->path, "/etc/table1999");
}

TEST(Journals, ReadAnEntryAsWhatItIsAndAsNothingElse) {
    const Written directory = written(MadeDirectory{"/a", {1, 2, 3}});
    ASSERT_TRUE(read_any_entry(directory));
    EXPECT_TRUE(std::holds_alternative<MadeDirectory>(*read_any_entry(directory)));
    EXPECT_FALSE(read_entry<MadeFile>(directory));
    EXPECT_FALSE(read_any_entry({"made miracle", "/a"})) << "of a kind that nobody knows";
    EXPECT_FALSE(read_any_entry({"made directory", "/a", "1", "2"})) << "a field is missing";
    EXPECT_FALSE(read_any_entry({"made directory", "/a", "1", "2", "x"})) << "a number is none";
    EXPECT_FALSE(read_any_entry({}));
}

TEST(Journals, WhatCannotBeNotedIsTakenBackAtOnce) {
    const tests::Scratch scratch;
    Journal journal;
    const std::string path = scratch.path("made");
    ASSERT_TRUE(std::filesystem::create_directory(path));
    const Ending ending = run_apart([&] {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_FSIZE, &none);
        std::signal(SIGXFSZ, SIG_IGN);
        EXPECT_THROW(journal.note_made(MadeDirectory{path, identity_of(path).value()}), Failure);
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_TRUE(ending.done);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(Uninterrupted, ASignalWaitsUntilTheEntryIsNoted) {
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigprocmask(SIG_UNBLOCK, &term, nullptr); // work that was run apart leaves it blocked
    std::signal(SIGTERM, [](int) { signals_taken = signals_taken + 1; });
    {
        const Uninterrupted uninterrupted;
        raise(SIGTERM);
        EXPECT_EQ(signals_taken, 0);
    }
    EXPECT_EQ(signals_taken, 1);
    std::signal(SIGTERM, SIG_DFL);
}
