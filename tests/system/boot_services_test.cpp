// SPDX-License-Identifier: MIT
// host/enable_boot_services and host/disable_boot_services, run by the command; nothing is started.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using tests::content;
using tests::hostadm;
using tests::Outcome;

const std::string settings = "/etc/systemd/system/";

std::string said_by(const std::string &command) {
    std::FILE *const stream = popen(command.c_str(), "r");
    std::string text;
    for (int letter; (letter = std::fgetc(stream)) != EOF;)
        text += static_cast<char>(letter);
    pclose(stream);
    return text;
}

// Everything that the methods could have a hand in: kinds, modes, targets and texts.
std::string everything() {
    const std::string places = "/etc/systemd /etc/init.d /var/lib/hostadm";
    return said_by("ls -A /etc /var/lib; find " + places +
                   " -printf '%p %y %m %U:%G %l\\n' 2>&1 | sort; find " + places +
                   " -type f 2>/dev/null | sort | xargs -r md5sum");
}

class BootServices : public testing::Test {
protected:
    void SetUp() override {
        fs::remove_all("/etc/systemd/system");
        fs::remove_all("/var/lib/hostadm");
        fs::create_directories(settings + "multi-user.target.wants");
        fs::create_directories("/usr/lib/systemd/system");
        for (const char *const service : {"nfs-ganesha", "nfs-server", "rarpd", "bootparamd", "tftpd-hpa"}) {
            fs::remove(std::string("/usr/lib/systemd/system/") + service + ".service");
            fs::remove(std::string("/etc/init.d/") + service);
        }
        for (const auto &unit : fs::directory_iterator(UNITS))
            fs::copy(unit.path(), "/usr/lib/systemd/system", fs::copy_options::overwrite_existing);
        fs::create_directories("/etc/init.d");
        std::ofstream("/etc/init.d/rarpd") << "#!/bin/sh\n";
        before_ = everything();
    }
    static void expect_done(const std::string &arguments, const std::string &changed) {
        const Outcome run = hostadm("run host/" + arguments);
        EXPECT_EQ(run.status, 0) << run.output;
        EXPECT_THAT(run.output, HasSubstr("changed  " + changed + "\n"));
    }
    std::string before_;
};

TEST_F(BootServices, AllThatABootNeedsIsSwitchedOn) {
    expect_done("enable_boot_services router=192.168.1.1", "yes");
    EXPECT_EQ(said_by("cd /etc/systemd/system && find . -type l -printf '%P %l\\n' | sort"),
              "multi-user.target.wants/hostadm-bootparamd.service "
              "/usr/lib/systemd/system/hostadm-bootparamd.service\n"
              "multi-user.target.wants/hostadm-nfsd.service /usr/lib/systemd/system/hostadm-nfsd.service\n"
              "multi-user.target.wants/hostadm-rarpd.service /usr/lib/systemd/system/hostadm-rarpd.service\n"
              "multi-user.target.wants/hostadm-shareall.service "
              "/usr/lib/systemd/system/hostadm-shareall.service\n"
              "multi-user.target.wants/hostadm-tftpd.service /usr/lib/systemd/system/hostadm-tftpd.service\n"
              "rarpd.service /dev/null\n"); // Debian's start script would start a second one
    EXPECT_THAT(content(settings + "rpcbind.service.d/hostadm.conf"), HasSubstr("rpcbind -f -w -r"));
    EXPECT_EQ(content(settings + "hostadm-bootparamd.service.d/router.conf"),
              "[Service]\nEnvironment=\"ROUTER_WORDS=-r 192.168.1.1\"\n");
}

TEST_F(BootServices, AgainChangesNothing) {
    expect_done("enable_boot_services router=192.168.1.1", "yes");
    const std::string after = everything();
    expect_done("enable_boot_services router=192.168.1.1", "no");
    EXPECT_EQ(everything(), after);
    expect_done("enable_boot_services", "no"); // the router stays
    EXPECT_EQ(everything(), after);
}

TEST_F(BootServices, AnotherRouterTakesThePlaceOfTheFirst) {
    expect_done("enable_boot_services router=192.168.1.1", "yes");
    expect_done("enable_boot_services router=192.168.1.2", "yes");
    EXPECT_THAT(content(settings + "hostadm-bootparamd.service.d/router.conf"),
                HasSubstr("-r 192.168.1.2\""));
    expect_done("disable_boot_services", "yes");
    EXPECT_EQ(everything(), before_);
}

TEST_F(BootServices, SwitchedOffEverythingIsAsBefore) {
    expect_done("enable_boot_services", "yes");
    EXPECT_NE(everything(), before_);
    expect_done("disable_boot_services", "yes");
    EXPECT_EQ(everything(), before_);
    expect_done("disable_boot_services", "no");
    EXPECT_EQ(everything(), before_);
}

TEST_F(BootServices, WhatTheAdministratorHasSwitchedOnStays) {
    fs::create_symlink("/usr/lib/systemd/system/hostadm-nfsd.service",
                       settings + "multi-user.target.wants/hostadm-nfsd.service");
    before_ = everything();
    expect_done("enable_boot_services", "yes");
    expect_done("disable_boot_services", "yes");
    EXPECT_EQ(everything(), before_);
}

TEST_F(BootServices, SettingsOfSomebodyElseAreNotTouched) {
    fs::create_directories(settings + "rpcbind.service.d");
    std::ofstream(settings + "rpcbind.service.d/hostadm.conf") << "[Service]\nNice=5\n";
    before_ = everything();
    const Outcome run = hostadm("run host/enable_boot_services");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("rpcbind.service.d/hostadm.conf is there already"));
    EXPECT_EQ(everything(), before_);
}

TEST_F(BootServices, LinkThatWasChangedSinceIsLeft) {
    expect_done("enable_boot_services", "yes");
    fs::remove(settings + "rarpd.service");
    fs::create_symlink("/etc/rarpd.own", settings + "rarpd.service");
    const Outcome run = hostadm("run host/disable_boot_services");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, HasSubstr("rarpd.service"));
    EXPECT_EQ(fs::read_symlink(settings + "rarpd.service"), "/etc/rarpd.own");
}

TEST_F(BootServices, WithoutTheAdaptersItSaysWhatToInstall) {
    fs::remove("/usr/lib/systemd/system/hostadm-rarpd.service");
    const Outcome run = hostadm("run host/enable_boot_services");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("cmake --install build --component compat"));
    EXPECT_EQ(everything(), before_);
}

TEST_F(BootServices, StartNowWhereAServiceManagerRuns) {
    fs::remove_all("/run/systemd/system");
    const Outcome without = hostadm("run host/enable_boot_services now=yes");
    EXPECT_EQ(without.status, 1);
    EXPECT_THAT(without.output, HasSubstr("no service manager"));
    EXPECT_EQ(everything(), before_);
    fs::create_directories("/run/systemd/system");
    standin::reset();
    standin::place("/usr/bin/systemctl");
    expect_done("enable_boot_services now=yes", "yes");
    EXPECT_THAT(
        standin::lines(),
        testing::ElementsAre("/usr/bin/systemctl daemon-reload", "/usr/bin/systemctl stop rarpd.service",
                             "/usr/bin/systemctl restart rpcbind.service",
                             "/usr/bin/systemctl start hostadm-shareall.service hostadm-nfsd.service "
                             "hostadm-rarpd.service hostadm-bootparamd.service hostadm-tftpd.service"));
    standin::reset();
    expect_done("enable_boot_services router=192.168.1.1 now=yes", "yes");
    EXPECT_THAT(standin::lines(), testing::Contains("/usr/bin/systemctl restart hostadm-bootparamd.service"))
        << "and nothing else, since it runs";
    standin::place("/usr/bin/systemctl", {.error = "Job failed.\n", .status = 1});
    const Outcome failed = hostadm("run host/enable_boot_services now=yes");
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.output, HasSubstr("systemctl stop rarpd.service"));
    fs::remove_all("/run/systemd/system");
}

TEST_F(BootServices, PreviewShowsTheLinksAndMakesNone) {
    const Outcome run = hostadm("preview host/enable_boot_services router=192.168.1.1");
    EXPECT_THAT(run.output, HasSubstr("hostadm-nfsd.service"));
    EXPECT_EQ(everything(), before_);
}

} // namespace
