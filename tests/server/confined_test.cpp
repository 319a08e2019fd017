// SPDX-License-Identifier: MIT
#include <cerrno>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <seccomp.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../support/inside.hpp"
#include "../support/text_files.hpp"
#include "server/confined.hpp"

namespace {

using namespace hostadm::server;
namespace fs = std::filesystem;
using tests::inside;

constexpr const char *root = "/export/root/c1";

void make_root() {
    fs::create_directories(std::string(root) + "/etc");
    tests::write("/etc/secret", "the server's own");
}

bool can_write(const std::string &path) {
    return static_cast<bool>(std::ofstream(path) << "x" << std::flush);
}

} // namespace

TEST(Confined, WorkChangesTheRootAndItsStatusComesBack) {
    inside([] {
        make_root();
        EXPECT_EQ(run_confined(root, [] { return can_write(std::string(root) + "/etc/new") ? 7 : 1; }), 7);
        EXPECT_EQ(tests::content(std::string(root) + "/etc/new"), "x");
    });
}

TEST(Confined, NothingElseCanBeWritten) {
    inside([] {
        make_root();
        fs::create_directories("/export/root/c2");
        EXPECT_EQ(run_confined(root,
                               [] {
                                   return can_write("/etc/secret") || can_write("/export/root/c2/new") ||
                                          can_write("/var/tmp/new");
                               }),
                  0);
        EXPECT_EQ(tests::content("/etc/secret"), "the server's own");
        EXPECT_FALSE(fs::exists("/export/root/c2/new"));
    });
}

TEST(Confined, OnAKernelWithoutLandlockNothingElseCanBeWrittenEither) {
    inside([] {
        make_root();
        fs::create_symlink("/etc/secret", std::string(root) + "/etc/link");
        fs::create_directories("/export/root/c2");
        const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ALLOW),
                                                                       &seccomp_release);
        ASSERT_EQ(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(ENOSYS), SYS_landlock_create_ruleset, 0), 0);
        ASSERT_EQ(seccomp_load(filter.get()), 0);
        ASSERT_EQ(syscall(SYS_landlock_create_ruleset, nullptr, 0, 1), -1);
        EXPECT_EQ(run_confined(root,
                               [] {
                                   const std::string below = std::string(root) + "/etc/";
                                   return can_write("/etc/secret") || can_write("/export/root/c2/new") ||
                                          can_write("/var/tmp/new") || can_write(below + "link") ||
                                          !can_write(below + "new");
                               }),
                  0);
        EXPECT_EQ(tests::content("/etc/secret"), "the server's own");
    });
}

TEST(Confined, LinksOfTheRootLeadNowhere) {
    inside([] {
        make_root();
        fs::create_symlink("/etc/secret", std::string(root) + "/etc/link");
        EXPECT_EQ(run_confined(root,
                               [] {
                                   return std::ifstream(std::string(root) + "/etc/link").is_open() ||
                                          can_write(std::string(root) + "/etc/link");
                               }),
                  0);
    });
}

TEST(Confined, TheTemporaryFolderIsItsOwn) {
    inside([] {
        make_root();
        tests::write("/tmp/of_a_user", "x");
        EXPECT_EQ(run_confined(root, [] { return !can_write("/tmp/mine") || fs::exists("/tmp/of_a_user"); }),
                  0);
        EXPECT_FALSE(fs::exists("/tmp/mine"));
    });
}

TEST(Confined, AProgramOfTheRootDoesNotRun) {
    inside([] {
        make_root();
        const std::string program = std::string(root) + "/run";
        tests::write(program, "#!/bin/sh\nexit 0\n");
        fs::permissions(program, fs::perms(0755));
        EXPECT_EQ(run_confined(root,
                               [&] {
                                   const int status = std::system(program.c_str());
                                   return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
                               }),
                  126);
    });
}

TEST(Confined, WorkThatThrowsOrIsKilledIsAFailure) {
    inside([] {
        make_root();
        EXPECT_THROW(run_confined(root, []() -> int { throw std::runtime_error("no"); }), std::runtime_error);
        EXPECT_THROW(run_confined(root,
                                  [] {
                                      raise(SIGKILL);
                                      return 0;
                                  }),
                     std::runtime_error);
        EXPECT_THROW(run_confined("/export/root/none", [] { return 0; }), std::runtime_error);
    });
}

TEST(Stages, HoldWhatTheOperationIsToFindAndLeaveTheRootAlone) {
    inside([] {
        make_root();
        tests::write(std::string(root) + "/etc/table", "the client's");
        const Stage stage(root);
        stage.files().write("found", "before");
        EXPECT_EQ(stage.run([] {
            const bool good = !fs::exists(std::string(root) + "/etc/table") &&
                              tests::content(std::string(root) + "/found") == "before" &&
                              can_write(std::string(root) + "/table");
            return good ? 0 : 1;
        }),
                  0);
        EXPECT_EQ(stage.files().read("table"), "x");
        EXPECT_EQ(tests::content(std::string(root) + "/etc/table"), "the client's");
        EXPECT_FALSE(fs::exists(std::string(root) + "/table"));
    });
}
