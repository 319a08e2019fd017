// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <unistd.h>

#include "../support/initramfs.hpp"
#include "../support/scratch.hpp"
#include "base/descriptor.hpp"
#include "server/initramfs.hpp"

namespace {

using namespace hostadm::server;
using tests::debians_initramfs;
using tests::initramfs;
using tests::InitramfsFiles;
using tests::without;

class Initramfs : public testing::Test {
protected:
    std::string file() const { return scratch_.path("initrd.img"); }
    // "3", "4", "34", "" for neither, "unknown"
    std::string mounts(const std::string &contents, const std::string &packed_by = "") {
        scratch_.write("initrd.img", contents);
        if (!packed_by.empty()) {
            EXPECT_EQ(std::system(("cd " + scratch_.path() + " && " + packed_by).c_str()), 0);
        }
        const hostadm::base::Descriptor opened(open(file().c_str(), O_RDONLY | O_CLOEXEC));
        const InitramfsRoots roots = roots_of_initramfs(opened);
        return !roots.known ? "unknown" : std::string(roots.nfs3 ? "3" : "") + (roots.nfs4 ? "4" : "");
    }
    static InitramfsFiles with(InitramfsFiles files, const std::string &name, const std::string &contents) {
        files.emplace_back(name, contents);
        return files;
    }

    tests::Scratch scratch_;
};

TEST_F(Initramfs, OfDebianMountsByVersion3Only) {
    EXPECT_EQ(mounts(initramfs(debians_initramfs)), "3");
}

TEST_F(Initramfs, OfDebianMountsByVersion4WithTheProgramThatAsksTheKernel) {
    EXPECT_EQ(mounts(initramfs(with(debians_initramfs, "usr/bin/nfsmount.klibc", "the other"))), "34");
}

TEST_F(Initramfs, OfAnotherMakerMountsWhatItHasModulesFor) {
    EXPECT_EQ(mounts(initramfs({{"m/107-nfsv3.ko", "a module"}, {"m/109-nfsv4.ko.xz", "a module"}})), "34");
    EXPECT_EQ(mounts(initramfs({{"./lib/modules/6.1/nfsv4.ko.zst", "a module"}})), "4");
}

TEST_F(Initramfs, MadeForLocalDisksMountsNoRootByNfs) {
    EXPECT_EQ(mounts(initramfs(without(debians_initramfs, "/fs/nfs/"))), "");
    EXPECT_EQ(mounts(initramfs({{"lib/modules/6.1/kernel/fs/ext4/ext4.ko", "a module"}})), "");
}

TEST_F(Initramfs, OfAKernelWithNfsBuiltInNeedsNoModules) {
    EXPECT_EQ(mounts(initramfs(
                  {{"lib/modules/6.1/modules.builtin", "kernel/fs/ext4/ext4.ko\nkernel/fs/nfs/nfsv3.ko\n"}})),
              "3");
}

TEST_F(Initramfs, WithoutModulesOrTheirListCannotBeTold) {
    EXPECT_EQ(mounts(initramfs({{"init", "a program"}})), "unknown");
}

TEST_F(Initramfs, IsReadHoweverItIsPacked) {
    const std::string archive = initramfs(debians_initramfs);
    for (const char *program : {"gzip", "xz", "xz --format=lzma", "zstd", "lz4 -l", "bzip2"}) {
        if (std::system(("command -v " + std::string(program) + " >/dev/null").c_str()) != 0)
            continue;
        EXPECT_EQ(mounts(archive, std::string(program) + " <initrd.img >packed && mv packed initrd.img"), "3")
            << program;
    }
}

TEST_F(Initramfs, IsReadBehindTheProcessorsFirmware) {
    const std::string firmware =
        initramfs({{"kernel/x86/microcode/AuthenticAMD.bin", std::string(70'001, 'x')}});
    EXPECT_EQ(mounts(firmware + std::string(100, '\0') + initramfs(debians_initramfs)), "3");
    scratch_.write("firmware", firmware);
    EXPECT_EQ(mounts(initramfs(debians_initramfs),
                     "gzip initrd.img && cat firmware initrd.img.gz >initrd.img && rm initrd.img.gz"),
              "3");
}

TEST_F(Initramfs, ThatIsNoneOrIsCutOffCannotBeTold) {
    const std::string archive = initramfs(debians_initramfs);
    EXPECT_EQ(mounts(""), "unknown");
    EXPECT_EQ(mounts("initramfs 6.1.0-10-amd64"), "unknown");
    EXPECT_EQ(mounts(archive.substr(0, 100)), "unknown");
    EXPECT_EQ(mounts(archive, "gzip <initrd.img | head -c 20 >cut && mv cut initrd.img"), "unknown");
}

TEST_F(Initramfs, WithSizesThatCannotBeIsReadNoFarther) {
    std::string archive = initramfs(debians_initramfs);
    archive.replace(94, 8, "ffffffff"); // of the first name
    EXPECT_EQ(mounts(archive), "unknown");
    archive.replace(94, 8, "00000000");
    EXPECT_EQ(mounts(archive), "unknown");
    archive = initramfs(debians_initramfs);
    archive.replace(54, 8, "ffffffff"); // of the first file
    EXPECT_EQ(mounts(archive), "unknown");
}

TEST_F(Initramfs, IsReadInPiecesOfAnySize) {
    const std::string archive = initramfs(with(debians_initramfs, "usr/bin/nfsmount.klibc", "the other"));
    for (const std::size_t size : {1u, 7u, 109u, 111u}) {
        InitramfsReader reader;
        for (std::size_t place = 0; place < archive.size(); place += size)
            if (!reader.hear(std::string_view(archive).substr(place, size)))
                break;
        EXPECT_TRUE(reader.roots().known && reader.roots().nfs3 && reader.roots().nfs4) << size;
    }
}

} // namespace
