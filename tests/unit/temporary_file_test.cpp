// SPDX-License-Identifier: MIT
// Files under names that anybody can foresee, made while somebody else puts links there. The admin file of
// the package installer stands for all of them.
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/scratch.hpp"

namespace {

namespace fs = std::filesystem;

std::string planted_target; // where the links lead to
int plants = 0;             // how many are still to be put in place

class TemporaryFile : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        planted_target = scratch.write("victim", "untouched");
    }
    void TearDown() override {
        plants = 0;
        EXPECT_EQ(tests::content(planted_target), "untouched");
        fs::remove(name);
    }
    const std::string name = "/tmp/pkgadmin." + std::to_string(getpid());
    tests::Scratch scratch;
};

} // namespace

// As soon as the name is free, somebody puts a link there.
extern "C" int unlink(const char *path) noexcept {
    static auto *real = reinterpret_cast<int (*)(const char *)>(dlsym(RTLD_NEXT, "unlink"));
    const int result = real(path);
    if (plants > 0) {
        --plants;
        EXPECT_EQ(symlink(planted_target.c_str(), path), 0);
    }
    return result;
}

TEST_F(TemporaryFile, LinkThatIsThereIsReplaced) {
    fs::create_symlink(planted_target, name);
    EXPECT_EQ(make_admin_file("/usr"), name);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(name)));
    EXPECT_NE(tests::content(name), "");
}

TEST_F(TemporaryFile, LinkThatComesMeanwhileIsNotFollowed) {
    plants = 3;
    EXPECT_EQ(make_admin_file("/usr"), name);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(name)));
    EXPECT_NE(tests::content(name), "");
    EXPECT_EQ(fs::status(name).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(TemporaryFile, LinksWithoutEndAreGivenUpOn) {
    plants = 1'000'000;
    EXPECT_EQ(make_admin_file("/usr"), name);
    EXPECT_GT(plants, 0);
    EXPECT_FALSE(fs::is_regular_file(fs::symlink_status(name)));
}

TEST_F(TemporaryFile, FolderOfTheNameIsAnError) {
    fs::create_directory(name);
    EXPECT_EQ(make_admin_file("/usr"), name);
    EXPECT_TRUE(fs::is_directory(name));
}

TEST_F(TemporaryFile, NoDescriptorStaysOpen) {
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = descriptors();
    for (int i = 0; i < 5; ++i)
        make_admin_file("/usr");
    EXPECT_EQ(descriptors(), before);
}

TEST_F(TemporaryFile, ModeIgnoresTheFileCreationMask) {
    const mode_t old = umask(0777);
    make_admin_file("/usr");
    umask(old);
    EXPECT_EQ(fs::status(name).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}
