// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/tree_state.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using hostadm::base::Beneath;
using hostadm::base::state_of_tree;

class TreeState : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/tree_state.XXXXXX";
        root = mkdtemp(pattern);
        tests::write(root + "/etc/motd", "welcome");
        fs::create_symlink("motd", root + "/etc/link");
        before = state();
    }
    void TearDown() override { fs::remove_all(root); }
    std::vector<std::string> state() const { return state_of_tree(Beneath(root)); }

    std::string root;
    std::vector<std::string> before;
};

TEST_F(TreeState, IsTheSameWhenNothingWasDone) {
    EXPECT_EQ(before.size(), 3U);
    EXPECT_EQ(state(), before);
}

TEST_F(TreeState, ForgetsFilesThatCameAndWent) {
    tests::write(root + "/etc/passing", "x");
    fs::remove(root + "/etc/passing");
    EXPECT_EQ(state(), before);
}

TEST_F(TreeState, TellsAFileThatIsNew) {
    tests::write(root + "/etc/new", "");
    EXPECT_NE(state(), before);
}

TEST_F(TreeState, TellsAFileThatWasWritten) {
    fs::last_write_time(root + "/etc/motd", fs::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_NE(state(), before);
}

TEST_F(TreeState, TellsAnotherMode) {
    chmod((root + "/etc").c_str(), 0700);
    EXPECT_NE(state(), before);
}

TEST_F(TreeState, TellsALinkThatLeadsElsewhere) {
    fs::remove(root + "/etc/link");
    fs::create_symlink("elsewhere", root + "/etc/link");
    EXPECT_NE(state(), before);
}

} // namespace
