// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/report.hpp"

using hostadm::server::Report;

TEST(Reports, SayWhetherAnythingChanged) {
    Report report;
    report.step("root", false, "/export/root/c1");
    report.kept("dump", "it stays");
    report.warn("TFTP", "does not run");
    EXPECT_FALSE(report.changed());
    report.step("swap", true, "/export/swap/c1/swap");
    report.step("share", false, "/export/root/c1");
    EXPECT_TRUE(report.changed()) << "one step is enough";
}
