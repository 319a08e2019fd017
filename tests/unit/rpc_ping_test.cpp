// SPDX-License-Identifier: MIT
// What the probe does with its arguments and its child; what needs a network is tested in a private one.
#include <cerrno>
#include <csignal>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "hostadm.h"

namespace {

bool fork_fails = false;
bool child_is_killed = false;
int interruptions = 0; // of the next waits
std::vector<std::string> looked_up;
int address_family = AF_INET; // of the hosts that are found

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

extern "C" pid_t wait(int *status) {
    if (interruptions > 0) {
        --interruptions;
        errno = EINTR;
        return -1;
    }
    return waitpid(-1, status, 0);
}

// Knows "known-host" only.
extern "C" hostent *gethostbyname(const char *name) {
    looked_up.push_back(name);
    static char address[16] = {127, 0, 0, 1};
    static char *addresses[] = {address, nullptr};
    static hostent found = {};
    found.h_addrtype = address_family;
    found.h_length = address_family == AF_INET ? 4 : 16;
    found.h_addr_list = addresses;
    return std::string(name) == "known-host" ? &found : nullptr;
}

TEST(RpcPing, DottedAddressIsNotLookedUp) {
    looked_up.clear();
    EXPECT_EQ(rpc_pinghost("127.0.0.1", 100000, 2, 0), 1);
    EXPECT_TRUE(looked_up.empty());
}

TEST(RpcPing, OnlyANameThatIsNotKnownIsTwo) {
    looked_up.clear();
    EXPECT_EQ(rpc_pinghost("known-host", 100000, 2, 0), 1);
    EXPECT_EQ(rpc_pinghost("other-host", 100000, 2, 0), 2);
    EXPECT_EQ(rpc_ping("other-host", 100000, 2, 0), 2);
    EXPECT_EQ(looked_up, (std::vector<std::string>{"known-host", "other-host"})); // the third in the child
}

TEST(RpcPing, HostWithoutAnAddressOfVersion4DoesNotAnswer) {
    address_family = AF_INET6;
    EXPECT_EQ(rpc_pinghost("known-host", 100000, 2, 1), 1);
    address_family = AF_INET;
}

TEST(RpcPing, InterruptedWaitGoesOn) {
    interruptions = 3;
    EXPECT_EQ(rpc_ping("other-host", 100000, 2, 1), 2);
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "the child has been waited for";
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
