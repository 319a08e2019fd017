// SPDX-License-Identifier: MIT
#include <atomic>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "../support/scratch.hpp"
#include "server/broken_runs.hpp"
#include "server/failure.hpp"
#include "server/line_edits.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm::server;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const hostadm::method::Description description{.name = "client/test", .purpose = "none"};

class BrokenRuns : public testing::Test {
protected:
    BrokenRuns() : table_(scratch_.write("hosts", "10.0.0.1 c1\n10.0.0.2 c2\n")) {}

    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root has locks of its own";
    }

    // Changes the line of c1, and is gone before anybody says what became of it.
    void break_off(const std::vector<Claim> &claims = {}) {
        KeptFile file("client/change", "c1", folder_);
        Journal journal(file.descriptor(), Journal::Lasts::beyond_the_machine);
        note_claims(journal, claims);
        change_lines(
            table_,
            [](std::string_view line) {
                return line == "10.0.0.1 c1" ? std::optional<std::string>("10.0.0.9 c1") : std::nullopt;
            },
            journal);
        ASSERT_THAT(tests::content(table_), HasSubstr("10.0.0.9 c1"));
    }

    std::string take_back() {
        hostadm::method::Call call(description);
        testing::internal::CaptureStderr();
        take_back_broken_runs(call, folder_, claims_);
        return testing::internal::GetCapturedStderr();
    }

    tests::Scratch scratch_;
    std::string table_, folder_ = scratch_.path("lib/unfinished"), claims_ = scratch_.path("run/claims");
};

} // namespace

TEST_F(BrokenRuns, AreTakenBackByTheNextRun) {
    break_off();
    ASSERT_THAT(broken_runs(folder_), SizeIs(1));
    EXPECT_EQ(broken_runs(folder_).front().method, "client/change");
    EXPECT_EQ(broken_runs(folder_).front().subject, "c1");
    EXPECT_EQ(take_back(), "test: client/change of c1 was cut off; all that it had done has been taken "
                           "back\n");
    EXPECT_EQ(tests::content(table_), "10.0.0.1 c1\n10.0.0.2 c2\n");
    EXPECT_THAT(broken_runs(folder_), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(scratch_.path("lib"))) << "a folder for nothing does not stay";
    EXPECT_EQ(take_back(), "") << "once";
}

TEST_F(BrokenRuns, OfWhichAnEntryWasNotYetWholeAreTakenBackToo) {
    break_off();
    const std::string file = broken_runs(folder_).front().path;
    const std::string whole = tests::content(file);
    tests::write(file, whole + "4 13 replaced li");
    EXPECT_THAT(take_back(), HasSubstr("all that it had done"));
    EXPECT_EQ(tests::content(table_), "10.0.0.1 c1\n10.0.0.2 c2\n");
}

TEST_F(BrokenRuns, ThatHadNotBegunLeaveNothing) {
    { const KeptFile file("client/change", "c1", folder_); }
    EXPECT_EQ(take_back(), "");
    EXPECT_FALSE(std::filesystem::exists(folder_));
}

TEST_F(BrokenRuns, KeepWhatSomebodyElseHasChangedSince) {
    break_off();
    tests::write(table_, "10.0.0.77 c1\n");
    EXPECT_THAT(take_back(), HasSubstr("part of what it had done could not be taken back"));
    EXPECT_EQ(tests::content(table_), "10.0.0.77 c1\n");
    EXPECT_THAT(broken_runs(folder_), IsEmpty()) << "it was told";
}

TEST_F(BrokenRuns, AreNotThoseThatLive) {
    KeptFile file("client/change", "c1", folder_);
    Journal(file.descriptor(), Journal::Lasts::beyond_the_machine).note(NewTable{"/none"});
    EXPECT_THAT(broken_runs(folder_), IsEmpty());
    EXPECT_EQ(take_back(), "");
    file.forget();
    EXPECT_FALSE(std::filesystem::exists(folder_));
}

TEST_F(BrokenRuns, AreNotThoseThatBeginWhileSomebodyLooks) {
    std::atomic<bool> enough = false;
    std::thread looker([&] {
        hostadm::method::Call call(description);
        while (!enough)
            take_back_broken_runs(call, folder_, claims_);
    });
    EXPECT_NO_THROW({
        for (int i = 0; i < 400 && !HasFailure(); ++i) {
            KeptFile file("client/change", "c1", folder_);
            struct stat kept {};
            EXPECT_EQ(fstat(file.descriptor().get(), &kept), 0);
            EXPECT_EQ(kept.st_nlink, 1U) << "removed under the hands of the run, round " << i;
            file.forget();
        }
    });
    enough = true;
    looker.join();
}

TEST_F(BrokenRuns, AreLeftToHimWhoWorksOnTheSame) {
    break_off({{Claim::Kind::address, "10.0.0.9"}});
    {
        const Claims other("client/add_diskless", "c3", {{Claim::Kind::address, "10.0.0.9"}}, claims_);
        EXPECT_EQ(take_back(), "");
        EXPECT_THAT(broken_runs(folder_), SizeIs(1));
    }
    EXPECT_THAT(take_back(), HasSubstr("all that it had done"));
}

TEST_F(BrokenRuns, AreRootsOwn) {
    break_off();
    struct stat folder {
    }, file{};
    ASSERT_EQ(stat(folder_.c_str(), &folder), 0);
    ASSERT_EQ(stat(broken_runs(folder_).front().path.c_str(), &file), 0);
    EXPECT_EQ(folder.st_mode & 0777, 0700u);
    EXPECT_EQ(file.st_mode & 0777, 0600u);
}

TEST_F(BrokenRuns, LinksAndPipesInTheFolderAreNoRuns) {
    break_off();
    std::filesystem::create_symlink(broken_runs(folder_).front().path, folder_ + "/link");
    ASSERT_EQ(mkfifo((folder_ + "/pipe").c_str(), 0600), 0);
    EXPECT_THAT(broken_runs(folder_), SizeIs(1));
}

TEST_F(BrokenRuns, ThatCannotBeNotedAreNotBegun) {
    tests::write(scratch_.path("lib"), "a file");
    EXPECT_THROW(KeptFile("client/change", "c1", folder_), Failure);
}
