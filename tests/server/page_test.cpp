// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>

#include "server/page.hpp"

namespace {

using namespace hostadm::server;
using hostadm::method::Call;

const hostadm::method::Description description{.name = "test/page", .purpose = "none"};

} // namespace

TEST(Pages, GiveTheStatusOfTheirWork) {
    Call call(description);
    EXPECT_EQ(guarded(call, [] { return 0; }), 0);
    EXPECT_EQ(guarded(call, [] { return 27; }), 27);
}

TEST(Pages, TurnEveryKindOfFailureIntoOne) {
    Call call(description);
    EXPECT_EQ(guarded(call, []() -> int { fail(Code::taken, "taken"); }), 1);
    EXPECT_EQ(guarded(call, []() -> int { refuse("of no use"); }), 1);
    EXPECT_EQ(guarded(call, []() -> int { throw Recorded(); }), 1);
    EXPECT_EQ(guarded(call, []() -> int { throw std::bad_alloc(); }), 1);
}
