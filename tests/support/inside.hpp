// SPDX-License-Identifier: MIT
// Runs a piece of a test in a throwaway root of its own; its assertions are printed there, and the test
// fails if one of them did. Where no such root can be made the test is skipped.
#pragma once

#include <chrono>
#include <functional>
#include <gtest/gtest.h>

#include "hostadm/sandbox.hpp"

namespace tests {

inline void inside(const std::function<void()> &work, hostadm::sandbox::Options options = {}) {
    options.time_limit = std::chrono::seconds(600);
    options.work = [&] {
        umask(022);
        work();
        return testing::Test::HasFailure() ? 1 : 0;
    };
    try {
        EXPECT_EQ(hostadm::sandbox::run(options).exit_status, 0);
    } catch (const hostadm::sandbox::Error &error) {
        if (error.kind() != hostadm::sandbox::Error::Kind::unavailable)
            throw;
        GTEST_SKIP() << error.what();
    }
}

} // namespace tests
