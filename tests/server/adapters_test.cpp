// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/scratch.hpp"
#include "server/adapters.hpp"
#include "server/failure.hpp"

using namespace hostadm::server;

TEST(Adapters, ThatAreMissingAreNamedWithTheWayToGetThem) {
    const tests::Scratch scratch;
    const std::string path = scratch.path("share");
    EXPECT_THAT(missing_command(path, "shares directories"),
                testing::AllOf(testing::HasSubstr(path + ", which shares directories, is missing"),
                               testing::HasSubstr("(" + how_to_install_adapters() + ")")));
    try {
        require_command(path, "shares directories");
        FAIL() << "it is not there";
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.code(), Code::missing_program);
    }
    EXPECT_NO_THROW(require_command("/bin/sh", "is there"));
}
