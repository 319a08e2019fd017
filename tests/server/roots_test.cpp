// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "../support/scratch.hpp"
#include "server/boot_area.hpp"
#include "server/packages.hpp"
#include "server/roots.hpp"

namespace {

using namespace hostadm::server;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;
namespace fs = std::filesystem;

const Identity identity{"kel4", "kel4m", "Quorvel", "2.5"};

} // namespace

TEST(Roots, PathsAreSplitAtCommas) {
    EXPECT_THAT(split_paths("/a"), ElementsAre("/a"));
    EXPECT_THAT(split_paths("/a/,/b//,,/"), ElementsAre("/a", "/b", "/"));
    EXPECT_THAT(split_paths(""), IsEmpty());
}

TEST(Roots, ANameThatBeginsAnotherIsNotAboveIt) {
    EXPECT_TRUE(is_at_or_below("/export/root/c1", "/export/root/c1"));
    EXPECT_TRUE(is_at_or_below("/export/root/c1/x", "/export/root/c1"));
    EXPECT_TRUE(is_at_or_below("/export", "/"));
    EXPECT_FALSE(is_at_or_below("/export/root/c10", "/export/root/c1"));
    EXPECT_FALSE(is_at_or_below("/export/root", "/export/root/c1"));
}

TEST(Roots, APathHasOneSpellingUpToItsLastName) {
    const tests::Scratch scratch;
    scratch.write("real/c1/file", "x");
    fs::create_directory_symlink(scratch.path("real"), scratch.path("link"));
    fs::create_directory_symlink(scratch.path("real/c1"), scratch.path("real/c2"));
    const std::string real = fs::canonical(scratch.path("real"));
    for (const char *spelling : {"real/c1", "real//c1/", "real/./c1", "link/c1", "real/c1/../c1"})
        EXPECT_EQ(real_path_of(scratch.path(spelling)), real + "/c1") << spelling;
    EXPECT_EQ(real_path_of(scratch.path("link/none/deeper")), real + "/none/deeper");
    EXPECT_EQ(real_path_of(scratch.path("link/c2")), real + "/c2") << "the last name is taken as it is";
    RealPaths many;
    for (const char *spelling :
         {"link/c1", "link/none/deeper", "link/c1", "real/c1", "link/none/deeper/still"})
        EXPECT_EQ(many.of(scratch.path(spelling)), real_path_of(scratch.path(spelling))) << spelling;
    fs::create_directory_symlink("/", scratch.path("top"));
    EXPECT_EQ(real_path_of(scratch.path("top/c1")), "/c1");
    EXPECT_EQ(real_path_of("/"), "/");
    EXPECT_EQ(real_path_of("//c1/"), "/c1");
    EXPECT_EQ(real_path_of(""), "");
}

TEST(Roots, WhatLiesJustBelowTheServersRootIsNearIt) {
    for (const char *path : {"/", "//", "/.", "/c1", "/c1/", "//c1//"})
        EXPECT_TRUE(is_near_server_root(path)) << path;
    EXPECT_FALSE(is_near_server_root("/export/c1"));
}

TEST(Roots, AFolderOfTheClientsNameIsSharedForItsFile) {
    EXPECT_EQ(share_path_of("/export/swap/c1/swap", "c1"), "/export/swap/c1");
    EXPECT_EQ(share_path_of("/export/swap/c1", "c1"), "/export/swap/c1");
}

TEST(Roots, NothingNearTheRootOfTheServerIsRemoved) {
    for (const char *path : {"/", "/usr", "//"})
        EXPECT_THROW(remove_tree(path), std::runtime_error) << path;
}

TEST(Roots, ATreeThatIsReachedThroughALinkIsNotRemoved) {
    const tests::Scratch scratch;
    scratch.write("real/file", "x");
    fs::create_directory_symlink(scratch.path("real"), scratch.path("link"));
    EXPECT_THAT([&] { remove_tree(scratch.path("link")); },
                ThrowsMessage<std::runtime_error>(HasSubstr("symbolic link")));
    EXPECT_TRUE(fs::exists(scratch.path("real/file")));
}

TEST(Roots, ATreeIsRemovedWithoutFollowingItsLinks) {
    const tests::Scratch scratch;
    scratch.write("outside/file", "x");
    scratch.write("tree/deep/er/file", "x");
    fs::create_directory_symlink(scratch.path("outside"), scratch.path("tree/link"));
    remove_tree(scratch.path("tree"));
    EXPECT_FALSE(fs::exists(scratch.path("tree")));
    EXPECT_TRUE(fs::exists(scratch.path("outside/file")));
}

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

TEST(BootLinkNames, AnAddressIsEightUpperCaseDigits) {
    EXPECT_EQ(address_digits("192.168.1.10"), "C0A8010A");
    EXPECT_EQ(address_digits("10.0.0.1"), "0A000001");
    EXPECT_EQ(address_digits("client1"), "");
}

TEST(BootLinkNames, TheArchitectureStandsInTheProgramsName) {
    EXPECT_EQ(architecture_of("inetboot.kel4m.Quorvel_2.5"), "kel4m");
    EXPECT_EQ(architecture_of("boot.kel4c.Quorvel.4.1.3"), "kel4c");
    EXPECT_EQ(architecture_of("pxelinux.0"), "");
    EXPECT_EQ(architecture_of(""), "");
}

TEST(BootLinkNames, LinksLeadToAProgramWhenBothDoAndNoOtherNameIsThere) {
    const BootLink plain{"0A000001", "boot", true}, named{"0A000001.KEL4M", "boot", true};
    EXPECT_TRUE(lead_to({plain, named}, "0A000001", "KEL4M", "boot"));
    EXPECT_FALSE(lead_to({plain, named}, "0A000001", "KEL4M", "other"));
    EXPECT_FALSE(lead_to({plain, named}, "0A000001", "KEL4C", "boot"));
    EXPECT_FALSE(lead_to({plain}, "0A000001", "KEL4M", "boot"));
    EXPECT_FALSE(lead_to({plain, named, {"0A000001.OLD", "boot", true}}, "0A000001", "KEL4M", "boot"));
    EXPECT_FALSE(lead_to({}, "0A000001", "KEL4M", "boot"));
}

TEST(BootLinkNames, TheStateSaysWhatIsWrong) {
    const BootLink plain{"0A000001", "boot", true}, named{"0A000001.KEL4M", "boot", true};
    EXPECT_EQ(boot_links_state("0A000001", {}), "no");
    EXPECT_EQ(boot_links_state("0A000001", {plain, named}), "yes");
    EXPECT_EQ(boot_links_state("0A000001", {plain}), "no 0A000001.ARCH");
    EXPECT_EQ(boot_links_state("0A000001", {named}), "no 0A000001");
    EXPECT_EQ(boot_links_state("0A000001", {plain, {"0A000001.KEL4M", "boot", false}}),
              "0A000001.KEL4M leads nowhere");
}
