// SPDX-License-Identifier: MIT
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/watched_commands.hpp"

using hostadm::server::WatchedCommands;

TEST(WatchedCommands, TellThatOneWasKilledWhoeverWaitedForIt) {
    for (const char *words :
         {"kill -9 $$", "(set -f ; sh -c 'kill -9 $$') 2>&1", "sh -c 'kill -TERM $$'; exit 143"}) {
        const WatchedCommands commands;
        EXPECT_NE(std::system((std::string(words) + " 2>/dev/null >&2").c_str()), 0);
        EXPECT_TRUE(commands.any_was_killed()) << words;
    }
    const WatchedCommands commands;
    pclose(popen("kill -9 $$", "r"));
    EXPECT_TRUE(commands.any_was_killed());
}

TEST(WatchedCommands, TakeOtherEndingsForWhatTheyAre) {
    const WatchedCommands commands;
    for (const char *words : {"exit 0", "exit 1", "exit 127"})
        EXPECT_NE(std::system(words), -1);
    EXPECT_FALSE(commands.any_was_killed());
}

TEST(WatchedCommands, ForgetWhatWasBefore) {
    {
        const WatchedCommands first;
        EXPECT_NE(std::system("kill -9 $$"), 0);
        EXPECT_TRUE(first.any_was_killed());
    }
    EXPECT_FALSE(WatchedCommands().any_was_killed());
}
