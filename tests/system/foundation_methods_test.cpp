// SPDX-License-Identifier: MIT
// filesystem/add_mount_entry, host/make_devices and install/get_os_pathnames, run by the command.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "support/run_method.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using tests::content;
using tests::hostadm;
using tests::Outcome;

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

TEST(AddMountEntry, EveryColumnHasItsPlace) {
    fs::remove("/etc/vfstab.all");
    const Outcome run = hostadm("run filesystem/add_mount_entry vfstab=/etc/vfstab.all mntopts=rw,soft "
                                "mountatboot=no fsckpass=2 fstype=ufs mountpt=/export fsckdev=/dev/rdsk/d1 "
                                "resource=/dev/dsk/d1");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(content("/etc/vfstab.all"), "/dev/dsk/d1\t/dev/rdsk/d1\t/export\tufs\t2\tno\trw,soft\n");
}

TEST(AddMountEntry, SixColumns) {
    const Outcome run =
        hostadm("run filesystem/add_mount_entry layout=4x vfstab=/etc/fstab.c1 resource=srv:/export/root/c1 "
                "mountpt=/ fstype=nfs mntopts=rw freq=0 fsckpass=1");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(content("/etc/fstab.c1"), "srv:/export/root/c1\t/\tnfs\trw\t0\t1\n");
}

TEST(AddMountEntry, RefusesWhatDoesNotFit) {
    fs::remove("/etc/vfstab");
    refused("filesystem/add_mount_entry mountpt=/mnt", "resource is missing");
    refused("filesystem/add_mount_entry resource=- mountpt=/mnt", "resource cannot be \"-\"");
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

TEST(AddMountEntry, TableOnAFullDiskStaysAsItWas) {
    fs::create_directories("/mnt/full");
    if (mount("full", "/mnt/full", "tmpfs", 0, "size=8k") != 0)
        GTEST_SKIP() << "no file system can be mounted here";
    std::ofstream("/mnt/full/vfstab") << "/dev/sda1 - / ext4 1 no -\n";
    std::ofstream("/mnt/full/rest") << std::string(100'000, 'x');
    const Outcome run = hostadm("run filesystem/add_mount_entry resource=/dev/x vfstab=/mnt/full/vfstab");
    const std::string table = content("/mnt/full/vfstab");
    const auto files = std::distance(fs::directory_iterator("/mnt/full"), fs::directory_iterator());
    umount("/mnt/full");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("/mnt/full/vfstab cannot be changed: No space left on device"));
    EXPECT_EQ(table, "/dev/sda1 - / ext4 1 no -\n");
    EXPECT_EQ(files, 2) << "nothing is left behind";
}

TEST(AddMountEntry, TableThatIsAMountPointIsAnError) {
    std::ofstream("/etc/mounted") << "/dev/sda1 - / ext4 1 no -\n";
    std::ofstream("/etc/below") << "";
    if (mount("/etc/mounted", "/etc/below", nullptr, MS_BIND, nullptr) != 0)
        GTEST_SKIP() << "no file can be mounted here";
    const Outcome run = hostadm("run filesystem/add_mount_entry resource=/dev/x vfstab=/etc/below");
    umount("/etc/below");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("/etc/below is a mount point and cannot be replaced"));
    EXPECT_EQ(content("/etc/mounted"), "/dev/sda1 - / ext4 1 no -\n");
}

class MakeDevices : public testing::Test {
protected:
    void SetUp() override {
        fs::remove_all("/export");
        fs::create_directories("/export/root/c1/devices/held");
        put_script("/export/exec/MAKEDEV", ": >\"node-$1\"; mkdir -p sub; ln -sf ../node-$1 sub/link\n");
    }
    static void put_script(const std::string &path, const std::string &text) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << "#!/bin/sh\n" << text;
        fs::permissions(path, fs::perms::owner_all);
    }
    const std::string make =
        "run host/make_devices script=/export/exec/MAKEDEV directory=/export/root/c1/devices ";
};

TEST_F(MakeDevices, NamesWhatWasMade) {
    const Outcome run = hostadm(make + "device=pty");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output,
              "changed  yes\n\nnode\n/export/root/c1/devices/node-pty\n/export/root/c1/devices/sub/link\n"
              "/export/root/c1/devices/sub\n");
    EXPECT_EQ(fs::read_symlink("/export/root/c1/devices/sub/link"), "../node-pty");
    EXPECT_EQ(hostadm(make + "device=pty").output, "changed  no\n");
}

TEST_F(MakeDevices, NodesHaveTheirNumbersAndModes) {
    put_script("/export/exec/MAKEDEV",
               "mknod zero c 1 5; chmod 0640 zero; chown 12:34 zero; mknod disk b 8 0\n");
    const Outcome run = hostadm(make + "device=std");
    if (run.output.find("mknod") != std::string::npos)
        GTEST_SKIP() << "no device can be made here: " << run.output;
    struct stat node {};
    ASSERT_EQ(stat("/export/root/c1/devices/zero", &node), 0) << run.output;
    EXPECT_EQ(node.st_mode, S_IFCHR | 0640U);
    EXPECT_EQ(node.st_rdev, makedev(1, 5));
    EXPECT_EQ(node.st_uid, 12U);
    EXPECT_EQ(node.st_gid, 34U);
    ASSERT_EQ(stat("/export/root/c1/devices/disk", &node), 0);
    EXPECT_EQ(node.st_mode & S_IFMT, unsigned{S_IFBLK});
}

TEST_F(MakeDevices, HeldDeviceFollowsTheTapes) {
    put_script("/export/exec/MAKEDEV", ": >\"node-$1\"\n");
    const Outcome run =
        hostadm(make + "device=st8 held_device=sd0 held_directory=/export/root/c1/devices/held");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.output,
        "changed  yes\n\nnode\n/export/root/c1/devices/node-st0\n/export/root/c1/devices/held/node-sd0\n");
}

TEST_F(MakeDevices, ScriptOfTheClientIsNeverRun) {
    put_script("/export/root/c1/devices/MAKEDEV", ": >/tmp/was-run\n");
    fs::create_symlink("/export/root/c1/devices/MAKEDEV", "/export/exec/link");
    for (const char *script : {"/export/root/c1/devices/MAKEDEV", "/export/exec/link"}) {
        const Outcome run =
            hostadm("run host/make_devices directory=/export/root/c1/devices device=pty script=" +
                    std::string(script));
        EXPECT_EQ(run.status, 1);
        EXPECT_THAT(run.output, HasSubstr("name one of this server or of the client's service"));
    }
    const Outcome other =
        hostadm("run host/make_devices directory=/export/root/c2 device=pty script=/export/exec/link");
    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(other.output, HasSubstr("lies in the client's root /export/root/c1"));
    EXPECT_EQ(hostadm(make + "device=pty").status, 0);
    EXPECT_FALSE(fs::exists("/tmp/was-run"));
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
    refused("host/make_devices device=pty script=/export/exec/MAKEDEV", "leave script out");
}

TEST_F(MakeDevices, MissingScriptIsAnError) {
    const Outcome run = hostadm("run host/make_devices directory=/export device=pty script=/export/MAKEDEV");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("/export/MAKEDEV is not there or not executable"));
}

class GetOsPathnames : public testing::Test {
protected:
    void SetUp() override { fs::remove_all("/cdrom"); }

    static void write(const std::string &path) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << "the program";
    }
    static Outcome ask(const std::string &others) {
        return hostadm("run install/get_os_pathnames inst_set_arch=kel4 imp_arch=kel4m os_prod=Quorvel " +
                       others);
    }
};

TEST_F(GetOsPathnames, NamesRootAndBootProgramOfATree) {
    fs::create_directories("/cdrom/s0/etc");
    write("/cdrom/s0/usr/platform/kel4m/lib/fs/nfs/inetboot");
    const Outcome run = ask("os_version=2.5 dirpath=/cdrom/s0");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "root_path  /cdrom/s0\n"
                          "boot_prog  /cdrom/s0/usr/platform/kel4m/lib/fs/nfs/inetboot\n");
}

TEST_F(GetOsPathnames, NamesPackagesAndBootProgramOfAnExportArea) {
    write("/cdrom/area/export/exec/kel4.Quorvel_2.5/lib/fs/nfs/inetboot");
    write("/cdrom/area/export/root/templates/Quorvel_2.5/KTVXbase/pkginfo");
    const Outcome run = ask("os_version=2.5 dirpath=/cdrom/area");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "root_path  /cdrom/area/export/root/templates/Quorvel_2.5\n"
                          "boot_prog  /cdrom/area/export/exec/kel4.Quorvel_2.5/lib/fs/nfs/inetboot\n");
}

TEST_F(GetOsPathnames, SaysWhatIsMissingAndWhereItLooked) {
    const Outcome nothing = ask("os_version=2.5 dirpath=/cdrom/none");
    EXPECT_EQ(nothing.status, 1);
    EXPECT_THAT(nothing.output, HasSubstr("/cdrom/none is not a directory"));
    fs::create_directories("/cdrom/bare");
    const Outcome bare = ask("os_version=2.5 dirpath=/cdrom/bare");
    EXPECT_EQ(bare.status, 1);
    EXPECT_THAT(bare.output, HasSubstr("/cdrom/bare is no install hierarchy"));
    fs::create_directories("/cdrom/bare/etc");
    const Outcome tree = ask("os_version=2.5 dirpath=/cdrom/bare");
    EXPECT_EQ(tree.status, 1);
    EXPECT_THAT(tree.output, HasSubstr("no boot program for kel4m"));
    EXPECT_THAT(tree.output, HasSubstr("/cdrom/bare/boot/inetboot.kel4m.Quorvel_2.5"));
}

TEST_F(GetOsPathnames, RefusesWhatDoesNotFit) {
    refused("install/get_os_pathnames inst_set_arch=kel4 imp_arch=kel4m os_prod=Quorvel os_version=2.5",
            "dirpath is missing");
    refused("install/get_os_pathnames inst_set_arch=kel4 imp_arch=kel4m os_prod=Quorvel dirpath=/cdrom",
            "os_version is missing");
    refused("install/get_os_pathnames inst_set_arch=kel4 imp_arch=kel4m os_prod=Quorvel os_version=x "
            "dirpath=/cdrom",
            "os_version");
    refused("install/get_os_pathnames inst_set_arch=kel4 imp_arch=kel4m os_prod=Quorvel os_version=2.5 "
            "dirpath=relative",
            "dirpath");
}

} // namespace
