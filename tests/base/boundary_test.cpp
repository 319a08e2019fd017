// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <string>

#include "base/boundary.hpp"

using namespace hostadm::base;

namespace {

template <typename Thrown> auto throwing(Thrown thrown) {
    return [thrown]() -> int { throw thrown; };
}

} // namespace

TEST(Boundary, LetsTheAnswerThrough) {
    EXPECT_EQ(at_boundary([] { return 7; }), 7);
    EXPECT_EQ(at_boundary(-1, [] { return 7; }), 7);
    EXPECT_EQ(errno_at_boundary(-1, [] { return 7; }), 7);
}

TEST(Boundary, KeepsTheErrorThatASystemErrorCarries) {
    EXPECT_EQ(at_boundary(throwing(std::system_error(ENOSPC, std::generic_category()))), ENOSPC);
}

TEST(Boundary, TakesMemoryThatIsOutForNoMemory) {
    EXPECT_EQ(at_boundary(throwing(std::bad_alloc())), ENOMEM);
    EXPECT_EQ(at_boundary(throwing(std::length_error("too long"))), ENOMEM);
}

TEST(Boundary, StopsEverythingElseToo) {
    EXPECT_EQ(at_boundary(throwing(std::runtime_error("what"))), EIO);
    EXPECT_EQ(at_boundary(throwing(42)), EIO);
    EXPECT_EQ(at_boundary(throwing(std::string("text"))), EIO);
}

TEST(Boundary, AnswersWithTheStatusGivenForEveryFailure) {
    EXPECT_EQ(at_boundary(-3, throwing(42)), -3);
    EXPECT_EQ(at_boundary(static_cast<const char *>(nullptr), []() -> const char * { throw 1; }), nullptr);
}

TEST(Boundary, SetsErrnoForFunctionsThatAnswerAsSystemCallsDo) {
    errno = 0;
    EXPECT_EQ(errno_at_boundary(-1, throwing(std::bad_alloc())), -1);
    EXPECT_EQ(errno, ENOMEM);
}
