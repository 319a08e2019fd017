// SPDX-License-Identifier: MIT
// filesystem/add_mount_entry and host/make_devices, run by the command.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/run_method.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using tests::hostadm;
using tests::Outcome;

std::string content(const std::string &path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void refused(const std::string &arguments, const std::string &text) {
    const Outcome run = hostadm("run " + arguments);
    EXPECT_EQ(run.status, 2) << run.output;
    EXPECT_THAT(run.output, HasSubstr(text));
}

TEST(AddMountEntry, SevenColumns) {
    fs::remove("/etc/vfstab");
    const std::string run =
        "run filesystem/add_mount_entry resource=HOST:/x mountpt=/mnt fstype=nfs mountatboot=yes ";
    EXPECT_EQ(hostadm(run + "mntopts=rw").status, 0);
    EXPECT_EQ(content("/etc/vfstab"), "host:/x\t-\t/mnt\tnfs\t-\tyes\trw\n");
    EXPECT_EQ(hostadm(run + "mntopts=ro").status, 0);
    EXPECT_EQ(hostadm(run + "mntopts=ro").status, 0);
    EXPECT_EQ(content("/etc/vfstab"), "host:/x\t-\t/mnt\tnfs\t-\tyes\tro\n");
}

TEST(AddMountEntry, SixColumns) {
    const Outcome run =
        hostadm("run filesystem/add_mount_entry layout=4x vfstab=/etc/fstab.c1 resource=srv:/export/root/c1 "
                "mountpt=/ fstype=nfs mntopts=rw freq=0 fsckpass=0");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(content("/etc/fstab.c1"), "srv:/export/root/c1\t/\tnfs\trw\t0\t0\n");
}

TEST(AddMountEntry, RefusesWhatDoesNotFit) {
    fs::remove("/etc/vfstab");
    refused("filesystem/add_mount_entry mountpt=/mnt", "resource is missing");
    refused("filesystem/add_mount_entry resource=/dev/x freq=1", "freq");
    refused("filesystem/add_mount_entry resource=/dev/x layout=4x mountatboot=yes", "mountatboot");
    refused("filesystem/add_mount_entry resource=/dev/x layout=4x fsckdev=/dev/x", "fsckdev");
    refused("filesystem/add_mount_entry resource=/dev/x layout=5x", "layout");
    refused("filesystem/add_mount_entry 'resource=/dev/x;reboot'", "resource");
    refused("filesystem/add_mount_entry resource=/dev/x mountpt=relative", "mountpt");
    refused("filesystem/add_mount_entry resource=/dev/x mountatboot=maybe", "mountatboot");
    EXPECT_FALSE(fs::exists("/etc/vfstab"));
}

TEST(AddMountEntry, TableThatCannotBeChangedIsAnError) {
    fs::create_directories("/etc/folder");
    const Outcome run = hostadm("run filesystem/add_mount_entry resource=/dev/x vfstab=/etc/folder");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("/etc/folder cannot be changed: Is a directory"));
}

class MakeDevices : public testing::Test {
protected:
    void SetUp() override {
        fs::remove_all("/export/devices");
        fs::create_directories("/export/devices/held");
        for (const char *script : {"/export/devices/MAKEDEV", "/export/devices/held/MAKEDEV"}) {
            std::ofstream(script) << "#!/bin/sh\n: >\"node-$1\"\n";
            fs::permissions(script, fs::perms::owner_all);
        }
    }
};

TEST_F(MakeDevices, NamesWhatWasMade) {
    const Outcome run = hostadm("run host/make_devices directory=/export/devices device=pty");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "node\n/export/devices/node-pty\n");
    EXPECT_EQ(hostadm("run host/make_devices directory=/export/devices device=pty").output, "");
}

TEST_F(MakeDevices, HeldDeviceFollowsTheTapes) {
    const Outcome run = hostadm("run host/make_devices directory=/export/devices device=st8 held_device=sd0 "
                                "held_directory=/export/devices/held");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "node\n/export/devices/held/node-sd0\n/export/devices/node-st0\n");
}

TEST_F(MakeDevices, RefusesWhatDoesNotFit) {
    refused("host/make_devices directory=/export/devices device=pty held_device=sd0",
            "must begin with st0 or st8");
    refused("host/make_devices directory=/export/devices device=st0 held_device=st80",
            "cannot be a tape device");
    refused("host/make_devices directory=/export/devices device=st0 held_directory=/dev",
            "needs held_device");
    refused("host/make_devices directory=/export/devices", "device is missing");
    refused("host/make_devices directory=/export/devices 'device=a;b'", "device");
}

TEST_F(MakeDevices, MissingScriptIsAnError) {
    const Outcome run = hostadm("run host/make_devices directory=/export device=pty");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("/export/MAKEDEV is not there or not executable"));
}

} // namespace
