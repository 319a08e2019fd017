// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/scratch.hpp"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// A directory with a script that writes down what it is asked for.
class Makedevs : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        fakes::commands().real = true;
        before = fs::current_path();
        add_script("dev");
    }
    void TearDown() override {
        EXPECT_EQ(fs::current_path(), before);
        hold_dev = {nullptr, nullptr};
    }
    void add_script(const std::string &directory) const {
        const std::string script =
            scratch.write(directory + "/MAKEDEV", "#!/bin/sh\necho \"$(basename $(pwd)): $*\" >>" +
                                                      scratch.path("log") + "\nexit 3\n");
        fs::permissions(script, fs::perms::owner_all);
    }
    std::string log() const { return tests::content(scratch.path("log")); }

    tests::Scratch scratch;
    fs::path before;
};

TEST_F(Makedevs, RunsTheScriptInItsDirectory) {
    EXPECT_EQ(makedevs(scratch.path("dev").c_str(), "pty"), 0);
    EXPECT_EQ(log(), "dev: pty\n");
    EXPECT_EQ(fakes::commands().lines, Lines{"./MAKEDEV pty"});
}

TEST_F(Makedevs, TapeNamesOfTheOldKindMeanTheFirst) {
    makedevs(scratch.path("dev").c_str(), "st8");
    makedevs(scratch.path("dev").c_str(), "st80");
    makedevs(scratch.path("dev").c_str(), "st1");
    EXPECT_EQ(log(), "dev: st0\ndev: st0\ndev: st1\n");
}

TEST_F(Makedevs, HeldBackRequestFollowsTheTapeDevices) {
    add_script("held");
    const std::string directory = scratch.path("held");
    hold_dev = {directory.c_str(), "sd0"};
    makedevs(scratch.path("dev").c_str(), "st8");
    EXPECT_EQ(log(), "dev: st0\nheld: sd0\n");
    makedevs(scratch.path("dev").c_str(), "st01");
    EXPECT_EQ(log(), "dev: st0\nheld: sd0\ndev: st01\nheld: sd0\n");
    EXPECT_EQ(hold_dev.directory, directory.c_str());
    EXPECT_STREQ(hold_dev.device_name, "sd0");
}

TEST_F(Makedevs, OtherDevicesDoNotReleaseTheHeldBackRequest) {
    hold_dev = {"/dev", "sd0"};
    makedevs(scratch.path("dev").c_str(), "pty");
    EXPECT_EQ(log(), "dev: pty\n");
}

TEST_F(Makedevs, HeldBackTapeDeviceNeverEnds) {
    hold_dev = {"/nonexistent", "st8"};
    fakes::commands().real = false;
    fakes::commands().exit_after = 100;
    EXPECT_EXIT(makedevs("/nonexistent", "st0"), testing::ExitedWithCode(9), "");
}

TEST_F(Makedevs, MissingDirectoryRunsWhereItIs) {
    fs::current_path(scratch.path("dev"));
    EXPECT_EQ(makedevs(scratch.path("missing").c_str(), "pty"), 0);
    EXPECT_EQ(fs::current_path(), scratch.path("dev"));
    fs::current_path(before);
    EXPECT_EQ(log(), "dev: pty\n");
}

TEST_F(Makedevs, MissingScriptIsNoFailure) {
    fs::create_directory(scratch.path("bare"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(makedevs(scratch.path("bare").c_str(), "pty"), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(log(), "");
}

TEST_F(Makedevs, ComesBackToADirectoryThatWasRenamed) {
    fs::create_directory(scratch.path("here"));
    fs::current_path(scratch.path("here"));
    const std::string script = scratch.write("mover/MAKEDEV", "#!/bin/sh\nmv ../here ../there\n");
    fs::permissions(script, fs::perms::owner_all);
    makedevs(scratch.path("mover").c_str(), "pty");
    EXPECT_EQ(fs::current_path(), scratch.path("there"));
    fs::current_path(before);
}

TEST_F(Makedevs, ComesBackToADirectoryOfAnyDepth) {
    fs::current_path(scratch.path());
    for (int i = 0; i < 60; ++i) {
        const std::string name(99, 'd');
        ASSERT_EQ(mkdir(name.c_str(), 0755), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
    }
    char *deep = getcwd(nullptr, 0);
    ASSERT_NE(deep, nullptr);
    makedevs(scratch.path("dev").c_str(), "pty");
    char *afterwards = getcwd(nullptr, 0);
    EXPECT_STREQ(afterwards, deep);
    std::free(deep);
    std::free(afterwards);
    fs::current_path(before);
    EXPECT_EQ(log(), "dev: pty\n");
}

} // namespace
