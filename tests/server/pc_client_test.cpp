// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "base/beneath.hpp"
#include "server/failure.hpp"
#include "server/pc_client.hpp"

namespace {

using namespace hostadm::server;
namespace fs = std::filesystem;

class NewestKernel : public testing::Test {
protected:
    NewestKernel() {
        char name[] = "/tmp/newest-kernel.XXXXXX";
        tree_ = mkdtemp(name);
        fs::create_directory(tree_ / "boot");
    }
    ~NewestKernel() override { fs::remove_all(tree_); }
    void make(const std::string &name) const { std::ofstream(tree_ / "boot" / name) << "x"; }

    fs::path tree_;
};

TEST_F(NewestKernel, IsComparedAsVersionsAre) {
    for (const char *name : {"vmlinuz-6.1.0-9-amd64", "vmlinuz-6.1.0-10-amd64", "initrd.img-6.1.0-10-amd64"})
        make(name);
    EXPECT_EQ(newest_kernel_in(hostadm::base::Beneath(tree_)).kernel, "boot/vmlinuz-6.1.0-10-amd64");
    EXPECT_EQ(newest_kernel_in(hostadm::base::Beneath(tree_)).initramfs, "boot/initrd.img-6.1.0-10-amd64");
}

TEST_F(NewestKernel, MayLackItsInitramfs) {
    make("vmlinuz-6.1.0-10-amd64");
    make("initrd.img-6.1.0-9-amd64");
    EXPECT_EQ(newest_kernel_in(hostadm::base::Beneath(tree_)).initramfs, "");
}

TEST_F(NewestKernel, IsNoneWhereThereIsNone) {
    EXPECT_EQ(newest_kernel_in(hostadm::base::Beneath(tree_)).kernel, "");
    fs::remove(tree_ / "boot");
    EXPECT_EQ(newest_kernel_in(hostadm::base::Beneath(tree_)).kernel, "");
}

TEST_F(NewestKernel, IsNotLookedForOutsideTheRoot) {
    fs::remove(tree_ / "boot");
    fs::create_directory(tree_ / "elsewhere");
    std::ofstream(tree_ / "elsewhere/vmlinuz-6.1") << "x";
    fs::create_symlink(tree_ / "elsewhere", tree_ / "boot");
    EXPECT_EQ(newest_kernel_in(hostadm::base::Beneath(tree_)).kernel, "");
}

TEST_F(NewestKernel, ThatIsMissingIsToldWithTheWayToGetIt) {
    const hostadm::base::Beneath root(tree_);
    const auto said = [&] {
        try {
            require_kernel(root);
        } catch (const Failure &failure) {
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_THAT(said(), testing::HasSubstr("apt-get install linux-image-amd64"));
    make("vmlinuz-6.1.0-10-amd64");
    EXPECT_THAT(said(), testing::HasSubstr("update-initramfs -c -k all"));
    make("initrd.img-6.1.0-10-amd64");
    EXPECT_EQ(said(), "");
}

TEST_F(NewestKernel, TellsItsReleaseItself) {
    std::string image(0x400, '\0');
    image.replace(0x202, 4, "HdrS");
    image.replace(0x20e, 2, std::string("\x40\x01", 2));
    image.replace(0x340, 35, "6.1.0-10-amd64 (somebody@somewhere)");
    std::ofstream(tree_ / "boot/vmlinuz") << image;
    EXPECT_EQ(kernel_release(tree_ / "boot/vmlinuz"), "6.1.0-10-amd64");
    std::ofstream(tree_ / "boot/vmlinuz") << "no kernel";
    EXPECT_EQ(kernel_release(tree_ / "boot/vmlinuz"), "");
    EXPECT_EQ(kernel_release("/nonexistent"), "");
}

TEST(PcLinks, TellWhatIsMissing) {
    EXPECT_EQ(pc_links_state({}), "no");
    EXPECT_EQ(pc_links_state({{"grub/grub.cfg-0A010203", "", false}}),
              "grub/grub.cfg-0A010203 names no kernel");
    EXPECT_EQ(pc_links_state({{"grub/grub.cfg-0A010203", "linux/Debian_12/vmlinuz", false}}),
              "no kernel or initramfs in linux/Debian_12");
    EXPECT_EQ(pc_links_state({{"grub/grub.cfg-0A010203", "linux/Debian_12/vmlinuz", true}}), "yes");
}

} // namespace
