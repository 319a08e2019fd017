// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>

#include "../support/inside.hpp"
#include "../support/text_files.hpp"
#include "server/boot_services.hpp"

namespace {

using namespace hostadm::server;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::inside;
namespace fs = std::filesystem;

const std::string settings = "/etc/systemd/system/";
const std::string router_setting = settings + "hostadm-bootparamd.service.d/router.conf";

void install_units() {
    for (const char *name : {"shareall", "nfsd", "rarpd", "bootparamd", "tftpd"})
        tests::write("/usr/lib/systemd/system/hostadm-" + std::string(name) + ".service", "[Service]\n");
}

// Every path of the settings, with what it holds.
std::map<std::string, std::string> all_settings() {
    std::map<std::string, std::string> found;
    if (!fs::exists(settings))
        return found;
    for (const auto &entry : fs::recursive_directory_iterator(settings))
        found[entry.path()] = entry.is_symlink()        ? fs::read_symlink(entry.path()).string()
                              : entry.is_regular_file() ? tests::content(entry.path())
                                                        : "";
    return found;
}

} // namespace

TEST(BootServices, AreSwitchedOnOnceAndTakenBackExactly) {
    inside([] {
        install_units();
        tests::write(settings + "own.service", "the administrator's");
        const auto before = all_settings();
        EXPECT_THAT(enable_boot_services("10.0.0.1").paths, Contains(router_setting));
        EXPECT_EQ(fs::read_symlink(settings + "multi-user.target.wants/hostadm-rarpd.service"),
                  "/usr/lib/systemd/system/hostadm-rarpd.service");
        EXPECT_THAT(tests::content(router_setting), HasSubstr("-r 10.0.0.1"));
        EXPECT_THAT(tests::content(settings + "rpcbind.service.d/hostadm.conf"),
                    HasSubstr("rpcbind -f -w -r"));
        EXPECT_THAT(enable_boot_services("10.0.0.1").paths, IsEmpty()) << "all of it is there";
        EXPECT_THAT(disable_boot_services().left, IsEmpty());
        EXPECT_EQ(all_settings(), before);
        EXPECT_THAT(disable_boot_services().paths, IsEmpty());
    });
}

TEST(BootServices, WhatSomebodyChangedSinceIsLeftAndTold) {
    inside([] {
        install_units();
        enable_boot_services("10.0.0.1");
        tests::write(router_setting, "[Service]\n");
        EXPECT_THAT(disable_boot_services().left, Contains(router_setting));
        EXPECT_EQ(tests::content(router_setting), "[Service]\n");
    });
}

TEST(BootServices, AnotherRouterTakesThePlaceOfTheFirst) {
    inside([] {
        install_units();
        const auto before = all_settings();
        enable_boot_services("10.0.0.1");
        EXPECT_THAT(enable_boot_services("10.0.0.2").paths, testing::ElementsAre(router_setting));
        EXPECT_THAT(tests::content(router_setting), HasSubstr("-r 10.0.0.2"));
        EXPECT_THAT(disable_boot_services().left, IsEmpty());
        EXPECT_EQ(all_settings(), before);
    });
}

TEST(BootServices, SettingsOfTheAdministratorAreNotReplaced) {
    inside([] {
        install_units();
        tests::write(router_setting, "[Service]\n");
        const auto before = all_settings();
        EXPECT_THROW(enable_boot_services("10.0.0.1"), std::runtime_error);
        EXPECT_EQ(all_settings(), before);
    });
}

TEST(BootServices, TheDhcpServerIsAmongThemWherePCsAreSetUp) {
    inside([] {
        install_units();
        tests::write("/etc/dnsmasq.d/hostadm.conf", "");
        tests::write("/usr/lib/systemd/system/hostadm-dnsmasq.service", "[Service]\n");
        const std::string own = settings + "multi-user.target.wants/hostadm-dnsmasq.service",
                          packaged = settings + "multi-user.target.wants/dnsmasq.service";
        fs::remove("/usr/lib/systemd/system/dnsmasq.service");
        EXPECT_THAT(enable_boot_services("").paths, Contains(own));
        disable_boot_services();
        tests::write("/usr/lib/systemd/system/dnsmasq.service", "[Service]\n");
        EXPECT_THAT(enable_boot_services("").paths, AllOf(Contains(packaged), Not(Contains(own))));
        disable_boot_services();
        fs::create_directories(settings);
        fs::create_symlink("/dev/null", settings + "dnsmasq.service");
        EXPECT_THAT(enable_boot_services("").paths, Contains(own)) << "the administrator wants no other";
    });
}

TEST(BootServices, ClientsWithoutABootProgramGetTheirAddressesToo) {
    inside([] {
        install_units();
        const std::string rarpd = settings + "hostadm-rarpd.service.d/hostadm.conf";
        tests::write("/etc/bootparams", "c1 root=localhost:/export/root/c1 boottype=:di\n");
        EXPECT_THAT(enable_boot_services("").paths, Not(Contains(rarpd)));
        tests::write("/etc/bootparams", "d1 exec=localhost:/export/usr boottype=:da\n");
        EXPECT_THAT(enable_boot_services("").paths, testing::ElementsAre(rarpd));
        EXPECT_THAT(tests::content(rarpd), HasSubstr("in.rarpd -ae\n"));
        EXPECT_THAT(disable_boot_services().left, IsEmpty());
        EXPECT_FALSE(fs::exists(rarpd));
    });
}

TEST(BootServices, TheFolderOfBootProgramsIsMadeAndTakenBackWhileItIsEmpty) {
    inside([] {
        install_units();
        fs::remove_all("/tftpboot");
        enable_boot_services("");
        EXPECT_TRUE(fs::is_directory("/tftpboot"));
        disable_boot_services();
        EXPECT_FALSE(fs::exists("/tftpboot"));
        enable_boot_services("");
        tests::write("/tftpboot/program", "x");
        EXPECT_THAT(disable_boot_services().left, IsEmpty());
        EXPECT_TRUE(fs::exists("/tftpboot/program"));
    });
}

TEST(BootServices, LinksThatTheServiceManagerMadeServeAsWell) {
    inside([] {
        install_units();
        fs::create_directories(settings + "multi-user.target.wants");
        const std::string link = settings + "multi-user.target.wants/hostadm-nfsd.service";
        fs::create_symlink("/lib/systemd/system/hostadm-nfsd.service", link);
        EXPECT_THAT(enable_boot_services("").paths, Not(Contains(link)));
        disable_boot_services();
        EXPECT_TRUE(fs::is_symlink(link)) << "it was there before";
    });
}

TEST(BootServices, WhatIsMaskedCannotBeSwitchedOn) {
    inside([] {
        install_units();
        fs::create_directories(settings);
        fs::create_symlink("/dev/null", settings + "hostadm-rarpd.service");
        const auto before = all_settings();
        EXPECT_THROW(enable_boot_services(""), std::runtime_error);
        EXPECT_EQ(all_settings(), before);
    });
}

TEST(BootServices, WithoutTheUnitsNothingIsSwitchedOn) {
    inside([] {
        fs::remove_all("/usr/lib/systemd/system");
        const auto before = all_settings();
        EXPECT_THROW(enable_boot_services(""), std::runtime_error);
        EXPECT_EQ(all_settings(), before);
    });
}
