// SPDX-License-Identifier: MIT
// What the probe does with its arguments and its child; what needs a network is tested in a private one.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "hostadm.h"

namespace {

bool fork_fails = false;
bool child_is_killed = false;

} // namespace

extern "C" pid_t fork(void) {
    static auto *real = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"));
    if (fork_fails) {
        errno = EAGAIN;
        return -1;
    }
    const pid_t child = real();
    if (child == 0 && child_is_killed)
        kill(getpid(), SIGKILL);
    return child;
}

TEST(RpcPing, BadArgumentsAre255) {
    EXPECT_EQ(rpc_ping("", 100000, 2, 1), 255);
    EXPECT_EQ(rpc_ping(nullptr, 100000, 2, 1), 255);
    EXPECT_EQ(rpc_ping("127.0.0.1", 0, 2, 1), 255);
    EXPECT_EQ(rpc_ping("127.0.0.1", 100000, 0, 1), 255);
}

TEST(RpcPing, BadArgumentsAreMinusOneInTheProcessItself) {
    EXPECT_EQ(rpc_pinghost("", 100000, 2, 1), -1);
    EXPECT_EQ(rpc_pinghost(nullptr, 100000, 2, 1), -1);
    EXPECT_EQ(rpc_pinghost("127.0.0.1", 0, 2, 1), -1);
    EXPECT_EQ(rpc_pinghost("127.0.0.1", 100000, 0, 1), -1);
}

TEST(RpcPing, NoTimeAtAllIsNoAnswer) {
    EXPECT_EQ(rpc_ping("127.0.0.1", 100000, 2, 0), 1);
    EXPECT_EQ(rpc_ping("127.0.0.1", 100000, 2, -5), 1);
}

TEST(RpcPing, ForkFailureIsMinusOne) {
    fork_fails = true;
    EXPECT_EQ(rpc_ping("127.0.0.1", 100000, 2, 1), -1);
    fork_fails = false;
}

TEST(RpcPing, KilledChildIsMinusOne) {
    child_is_killed = true;
    EXPECT_EQ(rpc_ping("127.0.0.1", 100000, 2, 1), -1);
    child_is_killed = false;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "the child has been waited for";
}

TEST(RpcPing, ChildOfTheCallerThatEndsFirstHidesTheAnswer) {
    const pid_t other = fork();
    if (other == 0)
        _exit(7);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(rpc_ping("", 1, 1, 1), -1);
    EXPECT_GT(wait(nullptr), 0) << "the probe's own child is still there to be waited for";
}
