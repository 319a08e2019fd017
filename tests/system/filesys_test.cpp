// SPDX-License-Identifier: MIT
// Mounts, shares and their tables with the real table library and framework; the commands are stand-ins.
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "hostadm.h"
#include "support/hostadm_command.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace fs = std::filesystem;
using hostadm_command::hostadm;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using tests::content;
using tests::write;

namespace {

constexpr char vfstab[] = "/etc/vfstab";
constexpr char dfstab[] = "/etc/dfs/dfstab";
const std::string vfstab_text = "#device\tdevice\tmount\n"
                                "/dev/dsk/c0t0d0s0\t/dev/rdsk/c0t0d0s0\t/\tufs\t1\tno\t-\n"
                                "\n"
                                "swap -  /tmp   tmpfs - yes -\n";
const std::string dfstab_text = "# shares of this server\n"
                                "share -F nfs -o ro  /usr/share\n"
                                "\n"
                                "share -F nfs -o rw=c2 -d 'homes of the lab' /export/home2\n";

int descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

} // namespace

class RealFilesys : public testing::Test {
protected:
    void SetUp() override {
        standin::reset();
        for (const char *path :
             {"/usr/sbin/mount", "/usr/sbin/umount", "/usr/sbin/share", "/usr/sbin/unshare"})
            standin::place(path);
        fs::remove_all(vfstab);
        fs::remove_all(dfstab);
        write(vfstab, vfstab_text);
        write(dfstab, dfstab_text);
        fs::create_directories("/export/home/c1");
    }
    // Shares need the daemons; that they run already spares the wait for them.
    void start_daemons() {
        for (const char *path : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd"}) {
            standin::place(path, {.stay = true});
            start_daemon(path, nullptr);
            standin::wait_for_calls(path, 1);
        }
        daemons = standin::calls();
        standin::reset();
    }
    void TearDown() override {
        for (const auto &calls :
             {daemons, standin::calls("/usr/lib/nfs/mountd"), standin::calls("/usr/lib/nfs/nfsd")})
            for (const standin::Call &call : calls)
                kill(call.pid, SIGKILL);
        while (waitpid(-1, nullptr, 0) > 0) {
        }
    }
    std::vector<standin::Call> daemons;
};

// ---- mounting ----

TEST_F(RealFilesys, UserMounts) {
    const auto result =
        hostadm("run filesystem/mount resource=server1:/export/home mountpt=/home fstype=nfs");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(standin::lines(),
                ElementsAre("/usr/sbin/mount -F nfs -o bg,hard,rw server1:/export/home /home"));
    EXPECT_EQ(content(vfstab), vfstab_text + "server1:/export/home\t-\t/home\tnfs\t-\tyes\tbg,hard,rw\n");
}

TEST_F(RealFilesys, MountingAgainReplacesTheLine) {
    const std::string command = "run filesystem/mount resource=/dev/dsk/c0t1d0s0 fsckdev=/dev/rdsk/c0t1d0s0 "
                                "mountpt=/data takeeffect=bootonly mntopts=";
    EXPECT_EQ(hostadm(command + "rw").status, 0);
    EXPECT_EQ(hostadm(command + "ro").status, 0);
    EXPECT_EQ(hostadm(command + "ro").status, 0);
    EXPECT_EQ(content(vfstab),
              vfstab_text + "/dev/dsk/c0t1d0s0\t/dev/rdsk/c0t1d0s0\t/data\tufs\t2\tyes\tro\n");
    EXPECT_THAT(standin::lines(), IsEmpty());
}

TEST_F(RealFilesys, MountingNowLeavesTheTableAlone) {
    fs::remove(vfstab);
    EXPECT_EQ(hostadm("run filesystem/mount resource=h:/d mountpt=/d fstype=nfs takeeffect=nowonly").status,
              0);
    EXPECT_FALSE(fs::exists(vfstab));
}

TEST_F(RealFilesys, UserSeesWhyAMountFailed) {
    standin::answer("/usr/sbin/mount", {.error = "mount: /data: no such device\nhint\n", .status = 32});
    const auto result = hostadm("run filesystem/mount resource=/dev/x fsckdev=- mountpt=/data");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("mount: /data: no such device"));
    EXPECT_THAT(result.error, HasSubstr("(error 23)"));
    EXPECT_EQ(content(vfstab), vfstab_text);
    EXPECT_THAT(standin::lines(), ElementsAre("/usr/sbin/mount -F ufs -o rw /dev/x /data"));
}

TEST_F(RealFilesys, WarningIsAFailure) {
    standin::answer("/usr/sbin/mount", {.output = "warning: clock skew\n", .status = 0});
    EXPECT_EQ(hostadm("run filesystem/mount resource=/dev/x fsckdev=- mountpt=/data").status, 1);
    EXPECT_EQ(content(vfstab), vfstab_text);
}

TEST_F(RealFilesys, CdromIsTriedAsUfs) {
    standin::answer_call("/usr/sbin/mount", 1, {.error = "not an hsfs file system\n", .status = 32});
    const auto result = hostadm("run filesystem/mount resource=/dev/dsk/c0t6d0s0 fsckdev=- mountpt=/cdrom "
                                "fstype=hsfs mntopts=ro mountatboot=no fsckpass=-");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(standin::lines(), ElementsAre("/usr/sbin/mount -F hsfs -o ro /dev/dsk/c0t6d0s0 /cdrom",
                                              "/usr/sbin/mount -F ufs -o ro /dev/dsk/c0t6d0s0 /cdrom"));
    EXPECT_EQ(content(vfstab), vfstab_text + "/dev/dsk/c0t6d0s0\t-\t/cdrom\tufs\t-\tno\tro\n");
}

TEST_F(RealFilesys, MountIsTakenBackWhenItsLineCannotBeWritten) {
    fs::remove(vfstab);
    fs::create_directory(vfstab);
    const auto result = hostadm("run filesystem/mount resource=h:/d mountpt=/d fstype=nfs");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("cannot update the entry for h:/d in /etc/vfstab: Is a directory"));
    EXPECT_THAT(result.error, HasSubstr("(error 70)"));
    EXPECT_THAT(result.error, Not(HasSubstr("half")));
    EXPECT_THAT(standin::lines(),
                ElementsAre("/usr/sbin/mount -F nfs -o bg,hard,rw h:/d /d", "/usr/sbin/umount /d"));
}

TEST_F(RealFilesys, NothingIsMountedWhenItsTableCannotBeMade) {
    for (const char *effect : {"nowandboot", "bootonly"}) {
        const auto result = hostadm(std::string("run filesystem/mount resource=h:/d mountpt=/d fstype=nfs "
                                                "vfstab=/missing/root/etc/vfstab takeeffect=") +
                                    effect);
        EXPECT_EQ(result.status, 1) << effect;
        EXPECT_THAT(result.error,
                    HasSubstr("/missing/root/etc/vfstab cannot be changed: No such file or directory"));
    }
    EXPECT_THAT(standin::lines(), IsEmpty());
    const auto below = hostadm("run filesystem/mount resource=h:/d mountpt=/missing fstype=nfs "
                               "vfstab=/missing/root/etc/vfstab");
    EXPECT_EQ(below.status, 1);
    EXPECT_THAT(standin::lines(), testing::SizeIs(2)) << "the table may come with the mount";
    EXPECT_EQ(
        hostadm("run filesystem/mount resource=h:/d mountpt=/d fstype=nfs vfstab=/missing/vfstab").status, 0);
    EXPECT_EQ(content("/missing/vfstab"), "h:/d\t-\t/d\tnfs\t-\tyes\tbg,hard,rw\n");
}

TEST_F(RealFilesys, UserIsToldWhenAMountCannotBeTakenBack) {
    fs::remove(vfstab);
    fs::create_directory(vfstab);
    standin::answer("/usr/sbin/umount", {.error = "busy\n", .status = 1});
    const auto result = hostadm("run --json filesystem/mount resource=h:/d mountpt=/d fstype=nfs");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output + result.error, HasSubstr("\"half_done\": true"));
}

TEST_F(RealFilesys, UserUnmounts) {
    const auto result = hostadm("run filesystem/unmount mountpt=/tmp");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(standin::lines(), ElementsAre("/usr/sbin/umount /tmp"));
    EXPECT_EQ(content(vfstab), vfstab_text.substr(0, vfstab_text.find("swap")));
}

TEST_F(RealFilesys, UserIsToldThatThereIsNothingToUnmount) {
    for (const char *effect : {"nowandboot", "nowonly", "bootonly"}) {
        const auto result = hostadm(std::string("run filesystem/unmount mountpt=/data takeeffect=") + effect);
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_EQ(result.output, "changed  no\n");
    }
    EXPECT_THAT(standin::lines(), IsEmpty());
    EXPECT_EQ(content(vfstab), vfstab_text);
}

TEST_F(RealFilesys, BusyFileSystemKeepsItsLine) {
    standin::answer("/usr/sbin/umount", {.error = "umount: /tmp: busy\n", .status = 1});
    const auto result = hostadm("run filesystem/unmount mountpt=/tmp");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("umount: /tmp: busy"));
    EXPECT_EQ(content(vfstab), vfstab_text);
}

TEST_F(RealFilesys, UserIsToldWhatBringsAMissingCommand) {
    fs::remove("/usr/sbin/mount");
    fs::remove("/usr/sbin/umount");
    const auto mounted = hostadm("run filesystem/mount resource=h:/d mountpt=/d fstype=nfs");
    EXPECT_EQ(mounted.status, 1);
    EXPECT_THAT(mounted.error,
                HasSubstr("/usr/sbin/mount, which mounts file systems, is missing; the adapters that "
                          "come with hostadm bring it (cmake --install build --component compat)"));
    const auto unmounted = hostadm("run filesystem/unmount mountpt=/tmp takeeffect=nowonly");
    EXPECT_EQ(unmounted.status, 1);
    EXPECT_THAT(unmounted.error, HasSubstr("/usr/sbin/umount, which unmounts file systems, is missing; "));
    EXPECT_EQ(content(vfstab), vfstab_text);
}

TEST_F(RealFilesys, UserOfThePackagesIsToldToTakeTheName) {
    fs::create_directories("/usr/libexec/hostadm/names");
    fs::rename("/usr/sbin/umount", "/usr/libexec/hostadm/names/umount");
    const auto unmounted = hostadm("run filesystem/unmount mountpt=/tmp takeeffect=nowonly");
    EXPECT_EQ(unmounted.status, 1);
    EXPECT_THAT(unmounted.error, HasSubstr("let hostadm's come before it: hostadm-names take"));
    fs::remove_all("/usr/libexec/hostadm/names");
}

TEST_F(RealFilesys, MountsOfTheNextStartNeedNoCommand) {
    fs::remove("/usr/sbin/mount");
    fs::remove("/usr/sbin/umount");
    EXPECT_EQ(hostadm("run filesystem/mount resource=h:/d mountpt=/d fstype=nfs takeeffect=bootonly").status,
              0);
    EXPECT_EQ(content(vfstab), vfstab_text + "h:/d\t-\t/d\tnfs\t-\tyes\tbg,hard,rw\n");
    EXPECT_EQ(hostadm("run filesystem/unmount mountpt=/d takeeffect=bootonly").status, 0);
    EXPECT_EQ(content(vfstab), vfstab_text);
}

// ---- sharing ----

TEST_F(RealFilesys, UserShares) {
    start_daemons();
    for (int run = 0; run < 2; ++run) {
        const auto result = hostadm("run filesystem/share pathname=/export/home/./c1/");
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_THAT(result.output, HasSubstr("/export/home/c1\n"));
        EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o rw /export/home/c1\n");
    }
    EXPECT_THAT(standin::lines(), ElementsAre("/usr/sbin/share -F nfs -o rw /export/home/c1",
                                              "/usr/sbin/share -F nfs -o rw /export/home/c1"));
}

TEST_F(RealFilesys, FirstShareStartsTheDaemons) {
    // Both were set aside: they come back to their places.
    for (const char *path : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd"}) {
        standin::place(path, {.stay = true});
        fs::rename(path, std::string(path) + "-");
    }
    const auto result = hostadm("run filesystem/share pathname=/export/home");
    EXPECT_EQ(result.status, 0) << result.error;
    for (const char *path : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd"})
        standin::wait_for_calls(path, 1);
    // Both are started in the background, so either may be the first to say so.
    EXPECT_THAT(standin::lines(), UnorderedElementsAre("/usr/sbin/share -F nfs -o rw /export/home",
                                                       "/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd -a 16"));
    for (const char *path : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd"}) {
        EXPECT_FALSE(fs::exists(std::string(path) + "-"));
        EXPECT_EQ(standin::calls(path).at(0).descriptors,
                  (std::map<int, std::string>{{0, "/dev/null"}, {1, "/dev/null"}, {2, "/dev/null"}}));
    }
}

TEST_F(RealFilesys, DescriptionOfSeveralWords) {
    start_daemons();
    EXPECT_EQ(
        hostadm("run filesystem/share pathname=/export/home description='homes of the lab; $HOME #1'").status,
        0);
    EXPECT_EQ(standin::calls().at(0).arguments,
              (std::vector<std::string>{"/usr/sbin/share", "-F", "nfs", "-o", "rw", "-d",
                                        "homes of the lab; $HOME #1", "/export/home"}));
    EXPECT_EQ(content(dfstab),
              dfstab_text + "share -F nfs -o rw -d 'homes of the lab; $HOME #1' /export/home\n");

    EXPECT_EQ(
        hostadm("run filesystem/share pathname=/export/home description=\"the admin's \\`own\\`\"").status,
        0);
    EXPECT_EQ(standin::calls().at(1).arguments.at(6), "the admin's `own`");
    EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o rw -d \"the admin's \\`own\\`\" /export/home\n")
        << "the line was found again by its path";

    EXPECT_EQ(hostadm("run filesystem/share pathname=/export/home description=homes options=ro").status, 0);
    EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o ro -d homes /export/home\n");
    EXPECT_EQ(hostadm("run filesystem/share pathname=/export/home").status, 0);
    EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o rw /export/home\n");
}

TEST_F(RealFilesys, BootReadsTheTableAsItWasMeant) {
    EXPECT_EQ(hostadm("run filesystem/share pathname=/export/home takeeffect=bootonly "
                      "description='it is \"ours\" & theirs'")
                  .status,
              0);
    EXPECT_THAT(standin::lines(), IsEmpty());
    EXPECT_EQ(std::system("PATH=/usr/sbin:$PATH sh /etc/dfs/dfstab"), 0);
    ASSERT_EQ(standin::calls().size(), 3u);
    EXPECT_EQ(standin::calls()[2].arguments.at(6), "it is \"ours\" & theirs");
}

TEST_F(RealFilesys, UserSeesWhyAShareFailed) {
    standin::answer("/usr/sbin/share",
                    {.error = "share_nfs: /export/home: not allowed\nhint\n", .status = 1});
    const auto result = hostadm("run filesystem/share pathname=/export/home");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("share_nfs: /export/home: not allowed"));
    EXPECT_THAT(result.error, HasSubstr("(error 27)"));
    EXPECT_EQ(content(dfstab), dfstab_text);
}

TEST_F(RealFilesys, SubDirectoryGoesIntoTheNewShare) {
    start_daemons();
    write(dfstab, dfstab_text + "share -F nfs -o rw /export/home\n");
    standin::answer_call(
        "/usr/sbin/share", 1,
        {.error = "share_nfs: /export: sub-directory (/export/home) already shared\n", .status = 1});
    standin::answer_call("/usr/sbin/share", 2, {.output = "-               /export/home   rw   \"\"\n"});
    const auto result = hostadm("run filesystem/share pathname=/export");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(standin::lines(),
                ElementsAre("/usr/sbin/share -F nfs -o rw /export", "/usr/sbin/share",
                            "/usr/sbin/unshare -F nfs /export/home", "/usr/sbin/share -F nfs -o rw /export"));
    EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o rw /export\n");
    EXPECT_THAT(result.output, HasSubstr("/export\n"));
}

TEST_F(RealFilesys, SubDirectoryWithOtherOptionsIsToldToTheUser) {
    standin::answer("/usr/sbin/share", {.output = "-               /export/home   ro=c9   \"\"\n"});
    standin::answer_call(
        "/usr/sbin/share", 1,
        {.error = "share_nfs: /export: sub-directory (/export/home) already shared\n", .status = 1});
    const auto result = hostadm("run filesystem/share pathname=/export options=rw");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("/export/home"));
    EXPECT_THAT(result.error, HasSubstr("ro=c9"));
    EXPECT_THAT(result.error, HasSubstr("(error 29)"));
    EXPECT_EQ(content(dfstab), dfstab_text);
}

TEST_F(RealFilesys, ParentWithOtherOptionsIsToldToTheUser) {
    standin::answer("/usr/sbin/share", {.output = "-               /export   ro=c9   \"\"\n"});
    standin::answer_call(
        "/usr/sbin/share", 1,
        {.error = "share_nfs: /export/home: parent-directory (/export) already shared\n", .status = 1});
    const auto result = hostadm("run filesystem/share pathname=/export/home");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("ro=c9"));
    EXPECT_THAT(result.error, HasSubstr("(error 30)"));
    char host[257];
    gethostname(host, sizeof host);
    EXPECT_THAT(result.error, HasSubstr(host));
}

TEST_F(RealFilesys, ParentWithTheSameOptionsServesTheDirectory) {
    start_daemons();
    standin::answer("/usr/sbin/share", {.output = "-               /export   rw   \"\"\n"});
    standin::answer_call(
        "/usr/sbin/share", 1,
        {.error = "share_nfs: /export/home: parent-directory (/export) already shared\n", .status = 1});
    EXPECT_EQ(hostadm("run filesystem/share pathname=/export/home").status, 0);
    EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o rw /export/home\n");
}

TEST_F(RealFilesys, ForcedShareBecomesAComment) {
    start_daemons();
    standin::answer("/usr/sbin/share", {.error = "no\n", .status = 1});
    for (int run = 0; run < 2; ++run) {
        const auto result = hostadm("run filesystem/share pathname=/export/home force=yes");
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.error, HasSubstr("/usr/sbin/share failed for /export/home: no"));
        EXPECT_EQ(content(dfstab), dfstab_text + "#share -F nfs -o rw /export/home\n");
    }
    standin::answer("/usr/sbin/share", {});
    EXPECT_EQ(hostadm("run filesystem/share pathname=/export/home").status, 0);
    EXPECT_EQ(content(dfstab),
              dfstab_text + "#share -F nfs -o rw /export/home\nshare -F nfs -o rw /export/home\n");
}

TEST_F(RealFilesys, ShareIsTakenBackWhenItsLineCannotBeWritten) {
    start_daemons();
    fs::remove(dfstab);
    fs::create_directory(dfstab);
    const auto result = hostadm("run filesystem/share pathname=/export/home");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("cannot update the entry for /export/home in /etc/dfs/dfstab"));
    EXPECT_THAT(standin::lines(), ElementsAre("/usr/sbin/share -F nfs -o rw /export/home",
                                              "/usr/sbin/unshare -F nfs /export/home"));
}

TEST_F(RealFilesys, DaemonThatIsMissingIsNoFailureOfTheShare) {
    fs::remove_all("/usr/lib/nfs");
    EXPECT_EQ(hostadm("run filesystem/share pathname=/export/home").status, 0);
    EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o rw /export/home\n");
}

// ---- unsharing ----

TEST_F(RealFilesys, UserUnshares) {
    const auto result = hostadm("run filesystem/unshare pathname=/export/home2");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(standin::lines(), ElementsAre("/usr/sbin/unshare -F nfs /export/home2"));
    EXPECT_EQ(content(dfstab), dfstab_text.substr(0, dfstab_text.find("share -F nfs -o rw=c2")));

    standin::answer("/usr/sbin/unshare", {.error = "unshare_nfs: /export/home2: not shared\n", .status = 1});
    const auto again = hostadm("run filesystem/unshare pathname=/export/home2");
    EXPECT_EQ(again.status, 0) << again.error;
    EXPECT_EQ(again.error, "");
}

TEST_F(RealFilesys, OnlyClientGetsItsShareWithdrawn) {
    standin::answer("/usr/sbin/share",
                    {.output = "-  /usr/share  ro  \"\"\n-  /export/home2   rw=c2   \"homes\"\n"});
    const auto other = hostadm("run filesystem/unshare pathname=/export/home2 client=c1");
    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(other.error, HasSubstr("/export/home2 is shared with others than c1"));
    EXPECT_TRUE(other.error.ends_with("(error 49)\n"));
    EXPECT_EQ(other.error.find("(error 49)"), other.error.rfind("(error 49)")) << "of both steps, told once";
    EXPECT_EQ(content(dfstab), dfstab_text);
    EXPECT_THAT(standin::calls("/usr/sbin/unshare"), IsEmpty());

    EXPECT_EQ(hostadm("run filesystem/unshare pathname=/export/home2 client=c2").status, 0);
    EXPECT_EQ(content(dfstab), dfstab_text.substr(0, dfstab_text.find("share -F nfs -o rw=c2")));
    EXPECT_EQ(standin::calls("/usr/sbin/unshare").size(), 1u);
}

TEST_F(RealFilesys, HalfWithdrawnShareIsTold) {
    standin::answer("/usr/sbin/unshare", {.error = "unshare_nfs: /export/home2: busy\n", .status = 1});
    const auto result = hostadm("run --json filesystem/unshare pathname=/export/home2");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output + result.error, HasSubstr("busy"));
    EXPECT_THAT(result.output + result.error, HasSubstr("\"half_done\": true"));
    EXPECT_THAT(content(dfstab), Not(HasSubstr("home2")));
}

TEST_F(RealFilesys, LongLineIsTestedWhole) {
    std::string hosts = "ro=c2";
    for (int i = 0; i < 1000; ++i)
        hosts += ":host" + std::to_string(i);
    write(dfstab, "share -F nfs -o " + hosts + ",rw=c1:c2 /export/home\n");
    EXPECT_EQ(hostadm("run filesystem/unshare pathname=/export/home client=c1 takeeffect=bootonly").status,
              1);
    EXPECT_THAT(content(dfstab), Not(IsEmpty()));
    write(dfstab, "share -F nfs -o " + hosts + ",rw=c1 /export/home\n");
    EXPECT_EQ(hostadm("run filesystem/unshare pathname=/export/home client=c1 takeeffect=bootonly").status,
              0);
    EXPECT_THAT(content(dfstab), IsEmpty());
}

// ---- listing, arguments ----

TEST_F(RealFilesys, UserListsShares) {
    standin::answer(
        "/usr/sbin/share",
        {.output =
             "-               /export/home   rw   \"homes\"\n-               /usr/share   ro   \"\"\n"});
    const auto result = hostadm("run filesystem/list_shares");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, testing::ContainsRegex("/export/home +rw\n/usr/share +ro\n"));
    standin::answer("/usr/sbin/share", {});
    EXPECT_EQ(hostadm("run filesystem/list_shares").status, 0);
    fs::remove("/usr/sbin/share");
    const auto missing = hostadm("run filesystem/list_shares");
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.error, HasSubstr("/usr/sbin/share, which knows the shares, is missing; "));
}

TEST_F(RealFilesys, UserIsToldWhatBringsAMissingShareCommand) {
    const std::string table = dfstab_text + "share -F nfs -o rw=c1 /export/home\n";
    write(dfstab, table);
    fs::remove("/usr/sbin/share");
    const auto shared = hostadm("run filesystem/share pathname=/export/home");
    EXPECT_EQ(shared.status, 1);
    EXPECT_THAT(shared.error,
                HasSubstr("/usr/sbin/share, which shares directories, is missing; the adapters that "
                          "come with hostadm bring it (cmake --install build --component compat)"));
    const auto of_client = hostadm("run filesystem/unshare pathname=/export/home client=c1");
    EXPECT_EQ(of_client.status, 1);
    EXPECT_THAT(of_client.error, HasSubstr("/usr/sbin/share, which knows the shares, is missing; "));
    fs::remove("/usr/sbin/unshare");
    const auto unshared = hostadm("run filesystem/unshare pathname=/export/home");
    EXPECT_EQ(unshared.status, 1);
    EXPECT_THAT(unshared.error, HasSubstr("/usr/sbin/unshare, which withdraws shares, is missing; "));
    EXPECT_THAT(unshared.error, Not(HasSubstr("half")));
    EXPECT_EQ(content(dfstab), table);
}

TEST_F(RealFilesys, SharesOfTheNextStartNeedNoCommand) {
    fs::remove("/usr/sbin/share");
    fs::remove("/usr/sbin/unshare");
    EXPECT_EQ(hostadm("run filesystem/share pathname=/export/home takeeffect=bootonly").status, 0);
    EXPECT_EQ(content(dfstab), dfstab_text + "share -F nfs -o rw /export/home\n");
    EXPECT_EQ(hostadm("run filesystem/unshare pathname=/export/home client= takeeffect=bootonly").status, 0);
    EXPECT_EQ(content(dfstab), dfstab_text);
}

TEST_F(RealFilesys, BadArgumentsAreRefusedByName) {
    const std::pair<const char *, const char *> wrong[] = {
        {"mount mountpt=/d fsckdev=-", "resource"},
        {"mount resource=h:/d fsckdev=-", "mountpt"},
        {"mount resource='h:/d;x' mountpt=/d fsckdev=-", "resource"},
        {"mount resource=- mountpt=/d fsckdev=-", "resource"},
        {"mount resource=h:/d mountpt=d fsckdev=-", "mountpt"},
        {"mount resource=h:/d mountpt=/d fsckdev='a b'", "fsckdev"},
        {"mount resource=h:/d mountpt=/d fstype='$(x)'", "fstype"},
        {"mount resource=h:/d mountpt=/d fsckdev=- fsckpass='*'", "fsckpass"},
        {"mount resource=h:/d mountpt=/d fsckdev=- fsckpass=x", "fsckpass"},
        {"mount resource=h:/d mountpt=/d fsckdev=- mountatboot=perhaps", "mountatboot"},
        {"mount resource=h:/d mountpt=/d fsckdev=- mntopts='rw;x'", "mntopts"},
        {"mount resource=h:/d mountpt=/d fsckdev=- takeeffect=never", "takeeffect"},
        {"mount resource=h:/d mountpt=/d fsckdev=- vfstab=etc/vfstab", "vfstab"},
        {"unmount", "mountpt"},
        {"unmount mountpt=d", "mountpt"},
        {"unmount mountpt=/d takeeffect=now", "takeeffect"},
        {"unmount mountpt=/d vfstab='|x'", "vfstab"},
        {"share", "pathname"},
        {"share pathname=export", "pathname"},
        {"share pathname=/export/../etc", "pathname"},
        {"share pathname=/e options='rw;x'", "options"},
        {"share pathname=/e fstype=ufs", "fstype"},
        {"share pathname=/e takeeffect=now", "takeeffect"},
        {"share pathname=/e force=1", "force"},
        {"share pathname=/e description=\"$(printf 'a\\nb')\"", "description"},
        {"unshare", "pathname"},
        {"unshare pathname='/e *'", "pathname"},
        {"unshare pathname=/e client='c 1'", "client"},
        {"unshare pathname=/e fstype=rfs", "fstype"},
        {"unshare pathname=/e takeeffect=2", "takeeffect"},
        {"list_shares path=/e", "path"},
    };
    for (const auto &[arguments, name] : wrong) {
        const auto result = hostadm(std::string("run filesystem/") + arguments);
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_THAT(result.error, HasSubstr(name)) << arguments;
    }
    EXPECT_THAT(standin::lines(), IsEmpty());
    EXPECT_EQ(content(vfstab), vfstab_text);
    EXPECT_EQ(content(dfstab), dfstab_text);
}

TEST_F(RealFilesys, CheckDeviceIsAskedFor) {
    const auto result = hostadm("run filesystem/mount resource=/dev/x mountpt=/data");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("fsckdev"));
    EXPECT_THAT(standin::lines(), IsEmpty());
}

// ---- previews ----

class FilesysPreview : public RealFilesys {
protected:
    void SetUp() override {
        RealFilesys::SetUp();
        // The leak checker cannot bear that a previewed method sees the live processes instead of itself.
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    }
    void TearDown() override {
        unsetenv("ASAN_OPTIONS");
        EXPECT_THAT(standin::lines(), testing::Each("/usr/sbin/share")) << "only the shares may be asked for";
        EXPECT_EQ(content(vfstab), vfstab_text);
        EXPECT_EQ(content(dfstab), dfstab_text);
        RealFilesys::TearDown();
    }
    static void list(const std::string &shares) { standin::answer("/usr/sbin/share", {.output = shares}); }
};

TEST_F(FilesysPreview, ShowsAMountAndItsLine) {
    const auto result = hostadm("preview filesystem/mount resource=server1:/home mountpt=/home fstype=nfs");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output,
                HasSubstr("Commands:\n  /usr/sbin/mount -F nfs -o bg,hard,rw server1:/home /home\n\n"));
    EXPECT_THAT(result.output, HasSubstr("\n+server1:/home\t-\t/home\tnfs\t-\tyes\tbg,hard,rw\n"));
}

TEST_F(FilesysPreview, ShowsAnUnmountAndItsLine) {
    const auto result = hostadm("preview filesystem/unmount mountpt=/tmp");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("Commands:\n  /usr/sbin/umount /tmp\n\n"));
    EXPECT_THAT(result.output, HasSubstr("\n-swap -  /tmp   tmpfs - yes -\n"));
}

TEST_F(FilesysPreview, ListsTheLiveShares) {
    list("-               /export/home   rw   \"homes\"\n");
    const auto result = hostadm("preview filesystem/list_shares");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, testing::ContainsRegex("/export/home +rw\n"));
    EXPECT_THAT(result.output, Not(HasSubstr("Commands:")));
}

TEST_F(FilesysPreview, ShowsAShareWithTheDaemonsThatItWouldStart) {
    for (const char *path : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd"})
        standin::place(path, {.stay = true});
    const auto result = hostadm("preview filesystem/share pathname=/export/home");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("\n+share -F nfs -o rw /export/home\n"));
    EXPECT_THAT(result.output, HasSubstr("\n  /usr/sbin/share -F nfs -o rw /export/home\n"));
    EXPECT_THAT(result.output, HasSubstr("\n  /usr/lib/nfs/mountd\n"));
    EXPECT_THAT(result.output, HasSubstr("\n  /usr/lib/nfs/nfsd -a 16\n"));
}

TEST_F(FilesysPreview, StartsNoDaemonThatRuns) {
    start_daemons();
    const auto result = hostadm("preview filesystem/share pathname=/export/home");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("Commands:\n  /usr/sbin/share -F nfs -o rw /export/home\n\n"));
}

TEST_F(FilesysPreview, WithdrawsASubDirectoryAsTheRealShareWould) {
    start_daemons();
    list("-               /export/home2   rw   \"\"\n");
    fs::create_directories("/export/home2");
    const auto result = hostadm("preview filesystem/share pathname=/export");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("Commands:\n  /usr/sbin/share -F nfs -o rw /export\n"
                                         "  /usr/sbin/unshare -F nfs /export/home2\n"
                                         "  /usr/sbin/share -F nfs -o rw /export\n\n"));
    EXPECT_THAT(result.output, HasSubstr("\n-share -F nfs -o rw=c2 -d 'homes of the lab' /export/home2\n"
                                         "+share -F nfs -o rw /export\n"));
}

TEST_F(FilesysPreview, FailsForAParentAsTheRealShareWould) {
    list("-               /export   ro=c9   \"\"\n");
    const auto result = hostadm("preview filesystem/share pathname=/export/home");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("ro=c9"));
    EXPECT_THAT(result.error, HasSubstr("(error 30)"));
    EXPECT_THAT(result.output, StartsWith("No file would change."));
}

TEST_F(FilesysPreview, TestsTheClientOfALiveShare) {
    list("-               /export/home2   rw=c2   \"\"\n");
    const auto other = hostadm("preview filesystem/unshare pathname=/export/home2 client=c1");
    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(other.error, HasSubstr("(error 49)"));
    const auto result = hostadm("preview filesystem/unshare pathname=/export/home2 client=c2");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("Commands:\n  /usr/sbin/unshare -F nfs /export/home2\n\n"));
    EXPECT_THAT(result.output, HasSubstr("\n-share -F nfs -o rw=c2 -d 'homes of the lab' /export/home2\n"));
}

// ---- what is left behind ----

TEST_F(RealFilesys, MegabytesOfComplaintDoNotBlock) {
    standin::answer("/usr/sbin/umount", {.script = "head -c 5000000 /dev/zero | tr '\\0' x"});
    EXPECT_EQ(unmount_filesystem("/tmp", "nowonly", nullptr, "unmount"), 24);
    standin::answer("/usr/sbin/share", {.script = "yes '- /a rw' | head -n 200000"});
    EXPECT_EQ(match_sharefs_ent("/a", "ro"), 0);
}

TEST_F(RealFilesys, CommandThatComplainsRunsToItsEnd) {
    for (const char *path : {"/usr/sbin/mount", "/usr/sbin/umount", "/usr/sbin/share", "/usr/sbin/unshare"})
        standin::answer(path, {.script = "for i in $(seq 20000); do echo a complaint; done; touch /ended$0"});
    fs::create_directories("/ended/usr/sbin");
    EXPECT_EQ(mount_filesystem("h:/d", nullptr, "/d", "nfs", nullptr, nullptr, nullptr, "nowonly", nullptr,
                               "mount"),
              23);
    EXPECT_TRUE(fs::exists("/ended/usr/sbin/mount"));
    EXPECT_EQ(unmount_filesystem("/d", "nowonly", nullptr, "unmount"), 24);
    EXPECT_TRUE(fs::exists("/ended/usr/sbin/umount"));
    EXPECT_EQ(sharefs(nullptr, nullptr, nullptr, "/export/home", "nowonly", "share", 0), 27);
    EXPECT_TRUE(fs::exists("/ended/usr/sbin/share"));
    EXPECT_EQ(unsharefs(nullptr, "/export/home", nullptr, "nowonly", "unshare"), 27);
    EXPECT_TRUE(fs::exists("/ended/usr/sbin/unshare"));
    // The list of shares, of which the first line is enough.
    fs::remove("/ended/usr/sbin/share");
    standin::answer("/usr/sbin/share",
                    {.script = "for i in $(seq 20000); do echo - /export/home rw=c2; done; touch /ended$0"});
    EXPECT_EQ(unsharefs(nullptr, "/export/home", "c1", "nowonly", "unshare"), 49);
    EXPECT_TRUE(fs::exists("/ended/usr/sbin/share"));
}

TEST_F(RealFilesys, CommandThatIsTooLongForTheSystemIsNotCut) {
    const std::string word(300'000, 'x'), path = "/" + word;
    testing::internal::CaptureStderr(); // the errors name it
    EXPECT_EQ(mount_filesystem("h:/d", nullptr, "/d", "nfs", nullptr, nullptr, word.c_str(), nullptr, nullptr,
                               "mount"),
              23);
    EXPECT_EQ(unmount_filesystem(path.c_str(), nullptr, nullptr, "unmount"), 24);
    EXPECT_EQ(sharefs(nullptr, word.c_str(), nullptr, "/export/home", nullptr, "share", 0), 27);
    EXPECT_EQ(unsharefs(nullptr, path.c_str(), nullptr, "nowonly", "unshare"), 27);
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(standin::lines(), IsEmpty());
    EXPECT_EQ(content(vfstab), vfstab_text);
    EXPECT_EQ(content(dfstab), dfstab_text);
}

TEST_F(RealFilesys, NothingIsLeftBehindByTenThousandCalls) {
    start_daemons();
    for (const char *path : {"/usr/sbin/mount", "/usr/sbin/umount", "/usr/sbin/unshare"}) {
        fs::remove(path);
        fs::copy_file("/usr/bin/true", path);
    }
    write("/usr/sbin/share", "#!/bin/sh\n[ $# -ne 0 ] || echo '- /export/home rw'\n");
    fs::permissions("/usr/sbin/share", fs::perms(0755));
    const auto call_everything = [](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            EXPECT_EQ(mount_filesystem("h:/d", nullptr, "/d", "nfs", nullptr, nullptr, nullptr, "nowonly",
                                       nullptr, "mount"),
                      0);
            EXPECT_EQ(unmount_filesystem("/d", "nowonly", nullptr, "unmount"), 0);
            EXPECT_EQ(sharefs(nullptr, nullptr, nullptr, "/export/home", "nowonly", "share", 0), 0);
            EXPECT_EQ(unsharefs(nullptr, "/export/home", nullptr, "nowonly", "unshare"), 0);
            EXPECT_STREQ(get_sharefs_ent("/export/home"), "rw");
        }
        free_sharefs_ents();
    };
    call_everything(50);
    const int open_before = descriptors();
    const auto memory_before = mallinfo2().uordblks;
    call_everything(2000);
    EXPECT_EQ(descriptors(), open_before);
    EXPECT_LT(mallinfo2().uordblks, memory_before + 16384);
    siginfo_t ended{};
    const int found = waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT);
    EXPECT_TRUE(found != 0 || ended.si_pid == 0) << "child " << ended.si_pid << " was left unreaped";
}
