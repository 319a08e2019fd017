// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "../support/scratch.hpp"
#include "server/failure.hpp"
#include "server/packages.hpp"

namespace {

using namespace hostadm::server;
using testing::HasSubstr;
using testing::ThrowsMessage;
namespace fs = std::filesystem;

const Identity identity{"kel4", "kel4m", "Quorvel", "2.5"};

} // namespace

TEST(Hierarchy, AnExportAreaIsAskedForThePlatformFirst) {
    const tests::Scratch area;
    const std::string exec = "export/exec/kel4.Quorvel_2.5";
    area.write(exec + "/lib/fs/nfs/inetboot", "plain");
    EXPECT_EQ(find_os(area.path(), identity).boot_prog, area.path(exec + "/lib/fs/nfs/inetboot"));
    area.write(exec + "/platform/kel4m/lib/fs/nfs/inetboot", "kel4m");
    EXPECT_EQ(find_os(area.path(), identity).boot_prog,
              area.path(exec + "/platform/kel4m/lib/fs/nfs/inetboot"));
    EXPECT_EQ(find_os(area.path(), identity).root_path, area.path(exec));
    area.write("export/root/templates/Quorvel_2.5/KTVXbase/pkginfo", "PKG=KTVXbase");
    EXPECT_EQ(find_os(area.path(), identity).root_path, area.path("export/root/templates/Quorvel_2.5"));
}

TEST(Hierarchy, ATreeIsItsOwnRoot) {
    const tests::Scratch tree;
    for (const char *place :
         {"lib/fs/nfs/inetboot", "usr/lib/fs/nfs/inetboot", "platform/kel4m/lib/fs/nfs/inetboot",
          "usr/platform/kel4m/lib/fs/nfs/inetboot", "boot/inetboot.kel4m.Quorvel_2.5"}) {
        tree.write("etc/passwd", "");
        tree.write(place, "x");
        EXPECT_EQ(find_os(tree.path(), identity).boot_prog, tree.path(place));
        EXPECT_EQ(find_os(tree.path(), identity).root_path, tree.path());
    }
}

TEST(Hierarchy, ATreeMayHoldUsrAlone) {
    const tests::Scratch tree;
    tree.write("usr/lib/fs/nfs/inetboot", "x");
    EXPECT_EQ(find_os(tree.path(), identity).root_path, tree.path());
}

TEST(Hierarchy, PathsOfTheRootDirectoryHaveOneSlash) {
    EXPECT_THAT(
        [] {
            find_os("/", {"kel4", "no-such-arch", "Quorvel", "2.5"});
        },
        ThrowsMessage<std::runtime_error>(HasSubstr("looked for /boot/inetboot.no-such-arch.Quorvel_2.5, "
                                                    "/usr/platform/no-such-arch/")));
}

TEST(Hierarchy, WhatIsMissingIsNamed) {
    const tests::Scratch place;
    EXPECT_THAT([&] { find_os(place.path("none"), identity); },
                ThrowsMessage<std::runtime_error>(HasSubstr("is not a directory")));
    EXPECT_THAT([&] { find_os(place.path(), identity); },
                ThrowsMessage<std::runtime_error>(HasSubstr("is no install hierarchy")));
    place.write("etc/passwd", "");
    EXPECT_THAT([&] { find_os(place.path(), identity); },
                ThrowsMessage<std::runtime_error>(HasSubstr("no boot program for kel4m")));
}

TEST(Hierarchy, PackagesAreFoldersWithAPkginfoFile) {
    const tests::Scratch place;
    EXPECT_FALSE(holds_packages(place.path()));
    place.write("pkginfo", "");
    EXPECT_FALSE(holds_packages(place.path())) << "that is a package itself";
    place.write("KTVXbase/pkginfo", "");
    EXPECT_TRUE(holds_packages(place.path()));
}
