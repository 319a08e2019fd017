// SPDX-License-Identifier: MIT
#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../support/eventually.hpp"
#include "../support/scratch.hpp"
#include "base/private_folder.hpp"
#include "server/claims.hpp"
#include "server/failure.hpp"

namespace {

using namespace hostadm::server;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

class ClaimsOfRuns : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root's runs claim anything";
    }
    std::unique_ptr<Claims> claim(const std::string &subject, const std::vector<Claim> &wanted) {
        return std::make_unique<Claims>("add_diskless", subject, wanted, folder_);
    }
    // What a run is told that wants this; empty: it gets it.
    std::string refused(const std::vector<Claim> &wanted) {
        try {
            Claims("remove", "c9", wanted, folder_);
        } catch (const Failure &failure) {
            EXPECT_EQ(failure.code(), Code::busy);
            return failure.what();
        }
        return "";
    }

    const tests::Scratch scratch_;
    const std::string folder_ = scratch_.path("run/claims");
};

} // namespace

TEST_F(ClaimsOfRuns, KeepOthersFromTheSameThingHoweverItIsSpelled) {
    const auto held = claim("c1", {{Claim::Kind::name, "c1"},
                                   {Claim::Kind::address, "10.1.2.3"},
                                   {Claim::Kind::ethernet, "08:00:20:0a:0b:0c"},
                                   {Claim::Kind::path, "/export/root/c1"}});
    EXPECT_THAT(refused({{Claim::Kind::name, "C1"}}),
                AllOf(HasSubstr("somebody else is working on c1 at the moment (add_diskless, process " +
                                std::to_string(getpid()) + ")"),
                      HasSubstr("try again when it is done")));
    EXPECT_THAT(refused({{Claim::Kind::address, "10.1.2.3"}}), HasSubstr("and has 10.1.2.3"));
    EXPECT_THAT(refused({{Claim::Kind::ethernet, "8:0:20:A:B:C"}}), HasSubstr("and has"));
    EXPECT_THAT(refused({{Claim::Kind::path, "/export/root/c1"}}), HasSubstr("and has /export/root/c1"));
    EXPECT_THAT(refused({{Claim::Kind::path, "/export/root/c1/below"}}), HasSubstr("and has"));
    EXPECT_THAT(refused({{Claim::Kind::path, "/export/root"}}), HasSubstr("and has")) << "it lies above";
}

TEST_F(ClaimsOfRuns, LeaveEverythingElseToOthers) {
    const auto held = claim("c1", {{Claim::Kind::name, "c1"}, {Claim::Kind::path, "/export/root/c1"}});
    EXPECT_THAT(refused({{Claim::Kind::name, "c2"},
                         {Claim::Kind::address, "10.1.2.3"},
                         {Claim::Kind::path, "/export/root/c10"}}),
                IsEmpty());
}

TEST_F(ClaimsOfRuns, CanBecomeMore) {
    const auto first = claim("c1", {{Claim::Kind::name, "c1"}});
    const auto second = claim("c2", {{Claim::Kind::name, "c2"}});
    first->add({{Claim::Kind::address, "10.1.2.3"}});
    EXPECT_THROW(second->add({{Claim::Kind::address, "10.1.2.3"}}), Failure);
    EXPECT_NO_THROW(first->add({{Claim::Kind::name, "c1"}})) << "what a run has it may want again";
}

TEST_F(ClaimsOfRuns, GoWithTheRun) {
    { const auto held = claim("c1", {{Claim::Kind::name, "c1"}}); }
    EXPECT_THAT(refused({{Claim::Kind::name, "c1"}}), IsEmpty());
    EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(ClaimsOfRuns, GoWithAProcessThatIsKilled) {
    const pid_t child = fork();
    if (child == 0) {
        const auto held = claim("c1", {{Claim::Kind::name, "c1"}});
        scratch_.write("held", "");
        pause();
        _exit(0);
    }
    EXPECT_TRUE(tests::eventually([&] { return fs::exists(scratch_.path("held")); }));
    EXPECT_THAT(refused({{Claim::Kind::name, "c1"}}), HasSubstr("process " + std::to_string(child)));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_THAT(refused({{Claim::Kind::name, "c1"}}), IsEmpty());
    EXPECT_TRUE(fs::is_empty(folder_)) << "what it left is gone too";
}

TEST_F(ClaimsOfRuns, LieWhereOnlyRootCanReach) {
    const auto held = claim("c1", {{Claim::Kind::name, "c1"}});
    for (const std::string &path : {scratch_.path("run"), folder_}) {
        struct stat folder {};
        ASSERT_EQ(stat(path.c_str(), &folder), 0);
        EXPECT_EQ(folder.st_mode & 07777, 0700u) << path;
    }
}

TEST_F(ClaimsOfRuns, AreNotKeptInAFolderOfSomebodyElses) {
    fs::create_directory(scratch_.path("run"));
    ASSERT_EQ(chown(scratch_.path("run").c_str(), 65534, 65534), 0);
    EXPECT_THROW(claim("c1", {{Claim::Kind::name, "c1"}}), Failure);
}

TEST(PrivateFolders, AreClosedToOthersAndNoLinks) {
    const tests::Scratch scratch;
    fs::create_directory(scratch.path("open"));
    chmod(scratch.path("open").c_str(), 0777);
    EXPECT_TRUE(hostadm::base::private_folder(scratch.path("open")).is_open());
    struct stat folder {};
    ASSERT_EQ(stat(scratch.path("open").c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 07777, 0700u);
    fs::create_directory_symlink(scratch.path("open"), scratch.path("link"));
    EXPECT_FALSE(hostadm::base::private_folder(scratch.path("link")).is_open());
}
