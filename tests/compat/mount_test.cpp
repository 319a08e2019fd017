// SPDX-License-Identifier: MIT
// mount and umount in front of Debian's, with real mounts in the throwaway root.
#include <csignal>
#include <cstring>

#include "installed.hpp"

namespace {

using compat::must;
using compat::Outcome;
using compat::sh;
using compat::text_of;
using compat::write_text;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char *vfstab = "/etc/vfstab";

// "TYPE OPTIONS" of what is mounted there, empty when nothing is.
std::string mounted(const std::string &place) {
    return sh("/usr/bin/findmnt -n -o FSTYPE,OPTIONS -M " + place + " | tr -s ' '").output;
}

// As the library does: what a call says, and how it ends.
void expect_silence(const std::string &command) {
    const Outcome outcome = sh("set -f; (" + command + ") 2>&1");
    EXPECT_EQ(outcome.output, "") << command;
    EXPECT_EQ(outcome.status, 0) << command;
}

void expect_failure(const std::string &command, const std::string &start, int status) {
    const Outcome outcome = sh("set -f; (" + command + ") 2>&1");
    EXPECT_THAT(outcome.output, StartsWith(start)) << command;
    EXPECT_EQ(outcome.status, status) << command;
}

class Mounts : public testing::Test {
protected:
    void SetUp() override { must("mkdir -p /mnt/x /mnt/y; rm -f /etc/vfstab"); }
    void TearDown() override { sh("for d in /mnt/x /mnt/y; do while /usr/bin/umount $d; do :; done; done"); }
};

TEST_F(Mounts, TmpfsIsMountedInSilenceAndUnmounted) {
    expect_silence("/usr/sbin/mount -F tmpfs -o ro,nosuid,size=64k swap /mnt/x");
    EXPECT_THAT(mounted("/mnt/x"), StartsWith("tmpfs ro,nosuid,"));
    EXPECT_THAT(mounted("/mnt/x"), HasSubstr("size=64k"));
    expect_silence("/usr/sbin/umount /mnt/x");
    EXPECT_EQ(mounted("/mnt/x"), "");
    expect_silence("/usr/sbin/mount -F tmpfs -m -O -r tmpfs /mnt/x");
    EXPECT_THAT(mounted("/mnt/x"), StartsWith("tmpfs ro,"));
    expect_silence("/usr/sbin/umount -F tmpfs -f /mnt/x");
    EXPECT_EQ(mounted("/mnt/x"), "");
}

TEST_F(Mounts, LoopbackIsABindMountOfTheDirectoryItself) {
    must("mkdir -p /mnt/y/there; echo text >/mnt/y/there/file");
    expect_silence("/usr/sbin/mount -F lofs -o ro /mnt/y/there /mnt/x");
    EXPECT_EQ(text_of("/mnt/x/file"), "text\n");
    EXPECT_NE(sh(": >/mnt/x/other").status, 0) << "it is read-only";
    EXPECT_EQ(sh(": >/mnt/y/there/other").status, 0);
    expect_silence("/usr/sbin/umount /mnt/x");
    EXPECT_EQ(text_of("/mnt/x/file"), "(no file)");
}

TEST_F(Mounts, MountedPlaceIsNotCoveredUnlessAskedFor) {
    must("mkdir -p /mnt/y/there");
    expect_silence("/usr/sbin/mount -F tmpfs -o size=64k swap /mnt/x");
    for (const char *const call : {"-F tmpfs -o rw swap /mnt/x", "-F lofs /mnt/y/there /mnt/x/"})
        expect_failure(
            std::string("/usr/sbin/mount ") + call,
            std::string("mount: ") + (std::strrchr(call, ' ') + 1) +
                ": something is mounted there already; unmount it first, or mount over it with -O\n",
            32);
    expect_silence("/usr/sbin/mount -F tmpfs -o remount,size=32k swap /mnt/x");
    EXPECT_THAT(mounted("/mnt/x"), HasSubstr("size=32k"));
    expect_silence("/usr/sbin/mount -F tmpfs -O -o size=16k swap /mnt/x");
    expect_silence("/usr/sbin/umount /mnt/x");
    EXPECT_THAT(mounted("/mnt/x"), HasSubstr("size=32k"));
    expect_silence("/usr/sbin/umount /mnt/x");
    EXPECT_EQ(mounted("/mnt/x"), "");
}

TEST_F(Mounts, FailureIsToldWithTheStatusOfDebiansMount) {
    // What is said about an unknown type depends on the kernel, and on what is to be mounted.
    const std::string unknown = sh("/usr/bin/mount -t nosuchtype -o rw none /mnt/x").output;
    expect_failure("/usr/sbin/mount -F nosuchtype -o rw none /mnt/x", unknown, 32);
    EXPECT_THAT(unknown, StartsWith("mount: /mnt/x: "));
    expect_failure("/usr/sbin/mount -F tmpfs none /mnt/none", "mount: /mnt/none: mount point does not exist",
                   32);
    expect_failure("/usr/sbin/mount -F tmpfs -o nosuchoption none /mnt/x", "mount: /mnt/x: ", 32);
    EXPECT_EQ(mounted("/mnt/x"), "");
    expect_failure("/usr/sbin/umount /mnt/x", "umount: /mnt/x: not mounted", 32);
    expect_failure("/usr/sbin/umount -F tmpfs /mnt/x", "umount: /mnt/x: not mounted", 32);
}

TEST_F(Mounts, MountPointAloneIsLookedUp) {
    write_text(vfstab, "# a comment\n"
                       "a - /mnt/x ufs - no -\n"
                       "swap - /mnt/x tmpfs - no ro,size=64k\n"
                       "own - /mnt/y tmpfs - no -\n");
    expect_silence("/usr/sbin/mount -F tmpfs /mnt/x");
    EXPECT_THAT(mounted("/mnt/x"), StartsWith("tmpfs ro,"));
    expect_silence("/usr/sbin/mount -F tmpfs -o size=32k own");
    EXPECT_THAT(mounted("/mnt/y"), HasSubstr("size=32k"));
    expect_failure("/usr/sbin/mount -F tmpfs /mnt/elsewhere",
                   "mount: /mnt/elsewhere: can't find in /etc/fstab", 1);
}

TEST_F(Mounts, WrongSystemVCallGetsTheUsage) {
    for (const char *const call :
         {"mount -F tmpfs", "mount -F tmpfs -a", "mount -F tmpfs -z a /mnt/x", "mount -F tmpfs -o",
          "mount -F tmpfs a b c", "mount -F tmpfs -F ufs a /mnt/x", "mount -F tmpfs a ''"})
        expect_failure(std::string("/usr/sbin/") + call, "mount: usage: mount -F TYPE [-o OPTIONS]", 1);
    for (const char *const call : {"umount -F tmpfs", "umount -F tmpfs -a", "umount -F tmpfs a b",
                                   "umount -F a -F b c", "umount -F tmpfs ''"})
        expect_failure(std::string("/usr/sbin/") + call, "umount: usage: umount -F TYPE [-f] MOUNTPOINT", 1);
}

TEST_F(Mounts, DebiansOwnCallsGiveWhatDebiansProgramGives) {
    for (const char *const name : {"mount", "umount"})
        for (const char *const arguments : {"--help", "--version", "--nonsense", "-t tmpfs"}) {
            const std::string call = std::string(name) + " " + arguments;
            const Outcome ours = sh("PATH=/usr/sbin:/usr/bin; " + call),
                          debians = sh("PATH=/usr/bin; " + call);
            EXPECT_EQ(ours.output, debians.output) << call;
            EXPECT_EQ(ours.status, debians.status) << call;
        }
    EXPECT_EQ(sh("/usr/sbin/mount").output, sh("/usr/bin/mount").output);
    expect_silence("/usr/sbin/mount -t tmpfs -o size=64k tmpfs /mnt/x");
    EXPECT_THAT(mounted("/mnt/x"), HasSubstr("size=64k"));
    expect_silence("/usr/sbin/umount -l /mnt/x");
    EXPECT_EQ(mounted("/mnt/x"), "");
}

TEST_F(Mounts, WholeWayFromTheCommand) {
    const Outcome mount =
        sh(HOSTADM_COMMAND " run filesystem/mount resource=tmpfs mountpt=/mnt/x fstype=tmpfs "
                           "fsckdev=- takeeffect=nowandboot");
    EXPECT_EQ(mount.status, 0) << mount.output;
    EXPECT_THAT(mounted("/mnt/x"), StartsWith("tmpfs rw,"));
    EXPECT_EQ(text_of(vfstab), "tmpfs\t-\t/mnt/x\ttmpfs\t2\tyes\trw\n");
    const Outcome again =
        sh(HOSTADM_COMMAND " run filesystem/mount resource=tmpfs mountpt=/mnt/x fstype=tmpfs fsckdev=-");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.output, "changed  no\n");
    for (const char *other : {"resource=other fstype=tmpfs", "resource=tmpfs fstype=tmpfs mntopts=ro"}) {
        const Outcome else_there =
            sh(HOSTADM_COMMAND " run filesystem/mount mountpt=/mnt/x fsckdev=- takeeffect=nowonly " +
               std::string(other));
        EXPECT_EQ(else_there.status, 1) << other;
        EXPECT_THAT(else_there.output, HasSubstr("something is mounted there already")) << other;
    }
    must("umount /mnt/x");
    const Outcome once_more =
        sh(HOSTADM_COMMAND " run filesystem/mount resource=tmpfs mountpt=/mnt/x fstype=tmpfs fsckdev=-");
    EXPECT_EQ(once_more.output, "changed  yes\n") << "its line was there";
    const Outcome unmount = sh(HOSTADM_COMMAND " run filesystem/unmount mountpt=/mnt/x");
    EXPECT_EQ(unmount.status, 0) << unmount.output;
    EXPECT_EQ(mounted("/mnt/x"), "");
    EXPECT_EQ(text_of(vfstab), "");
    EXPECT_EQ(sh(HOSTADM_COMMAND " run filesystem/unmount mountpt=/mnt/x").output, "changed  no\n");

    const Outcome failed =
        sh(HOSTADM_COMMAND " run filesystem/mount resource=tmpfs mountpt=/mnt/none fstype=tmpfs "
                           "fsckdev=-");
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.output, HasSubstr("mount: /mnt/none: mount point does not exist"));
    EXPECT_EQ(text_of(vfstab), "");
}

// Debian's programs replaced by one that tells how it was called.
class Calls : public testing::Test {
protected:
    void SetUp() override {
        must("for p in mount umount; do mv /usr/bin/$p /usr/bin/real-$p; done; rm -f /etc/vfstab");
        place("");
    }
    void TearDown() override { sh("for p in mount umount; do mv -f /usr/bin/real-$p /usr/bin/$p; done"); }
    static void place(const std::string &more) {
        for (const char *const name : {"mount", "umount"})
            write_text(std::string("/usr/bin/") + name,
                       "#!/bin/bash\ntr '\\0' ' ' </proc/$$/cmdline | cut -d' ' -f3- "
                       ">/tmp/call\n" +
                           more);
        must("chmod 755 /usr/bin/mount /usr/bin/umount");
    }
    // The words behind the program's name.
    static std::string call(const std::string &command) {
        sh("rm -f /tmp/call; /usr/sbin/" + command);
        return text_of("/tmp/call");
    }
};

TEST_F(Calls, OfDebiansOwnFormGoOnUnchanged) {
    for (const std::string words :
         {"", "-a", "-aF", "-a -F -t nfs", "-F -a", "-F", "-F /mnt/x", "-F UUID=1-2 /mnt", "-F ./x /mnt",
          "-F '' /mnt", "-Fnfs /mnt", "-o ro -F nfs a b", "-t nfs -F a b", "--fork -a", "-- -F nfs a b",
          "a /b", "-o 'a b,c' x /y"}) {
        std::string plain = words;
        std::erase(plain, '\'');
        EXPECT_EQ(call("mount " + words), plain + (words.empty() ? "\n" : " \n")) << words;
        EXPECT_EQ(call("umount " + words), plain + (words.empty() ? "\n" : " \n")) << words;
    }
}

TEST_F(Calls, OfSystemVAreTranslated) {
    const std::pair<const char *, const char *> calls[] = {
        {"-F nfs -o bg,hard,intr,rw,quota h:/a /a", "-t nfs -o bg,hard,intr,rw -- h:/a /a \n"},
        {"-F hsfs -o ro,nrr /dev/sr0 /cdrom", "-t iso9660 -o ro,norock -- /dev/sr0 /cdrom \n"},
        {"-F pcfs /dev/fd0 /pc", "-t vfat -- /dev/fd0 /pc \n"},
        {"-F lofs -o nosetuid,nodevices /a /b", "--bind -o nosuid,nodev -- /a /b \n"},
        {"-F ufs -o largefiles /dev/a /b", "-t ufs -- /dev/a /b \n"},
        {"-F ufs -o rw,nointr,unheard,noauto -o noquota /dev/a /b",
         "-t ufs -o rw,unheard,noauto -- /dev/a /b \n"},
        {"-F ext4 -mOr -o noquota /dev/a /b", "-t ext4 -n -r -o noquota -- /dev/a /b \n"},
        {"-F nfs -- -o /b", "-t nfs -- -o /b \n"},
        {"-F nfs /a", "-t nfs -- /a \n"},
    };
    for (const auto &[words, expected] : calls)
        EXPECT_EQ(call(std::string("mount ") + words), expected) << words;
    EXPECT_EQ(call("umount -F nfs -f /a"), "-f -- /a \n");
}

TEST_F(Calls, ThatSucceedSayNothingAndThatFailSayAll) {
    const std::string mount = "/usr/sbin/mount -F tmpfs a /b", umount = "/usr/sbin/umount -F tmpfs /b";
    place("echo one; echo two >&2\n");
    expect_silence(mount);
    expect_silence(umount);
    place("echo one; echo two >&2; exit 64\n");
    expect_failure(mount, "one\ntwo\n", 64);
    expect_failure(umount, "one\ntwo\n", 64);
    expect_failure("/usr/sbin/mount -F ufs a /b", "mount: ufs needs the option ufstype=", 64);
    EXPECT_THAT(sh("/usr/sbin/mount -F ufs a /b").output, EndsWith("\none\ntwo\n"));
    expect_failure("/usr/sbin/mount -F ufs -o ufstype=44bsd a /b", "one\n", 64);
    place("exit 5\n");
    expect_failure(mount, "mount: /usr/bin/mount ended with exit status 5\n", 5);
    place("kill -KILL $$\n");
    expect_failure(umount, "umount: /usr/bin/umount was killed by signal 9 (Killed)\n", 128 + SIGKILL);
}

TEST_F(Calls, DoNotWaitForAMountThatGoesOnInTheBackground) {
    place("sleep 600 & echo $! >/tmp/background; echo 'in the background'\n");
    expect_silence("/usr/sbin/mount -F nfs -o bg h:/a /b");
    EXPECT_EQ(sh("kill $(cat /tmp/background)").status, 0) << "it is over already";
}

TEST_F(Calls, SayWhatToInstall) {
    must("rm /usr/bin/mount /usr/bin/umount");
    for (const char *const name : {"mount", "umount"})
        for (const char *const arguments : {"", " -a", " -F nfs /b"})
            expect_failure(
                std::string("/usr/sbin/") + name + arguments,
                name + std::string(": /usr/bin/") + name + " is missing; install the package mount\n", 2);
}

TEST_F(Calls, DoNotGoRoundForEver) {
    must("ln -sf /usr/sbin/mount /usr/bin/mount");
    expect_failure("/usr/sbin/mount -a", "mount: /usr/bin/mount is this adapter; ", 2);
    expect_failure("/usr/sbin/mount -F nfs /a", "mount: /usr/bin/mount is this adapter; ", 2);
    must("rm /usr/bin/mount");
}

TEST(MountInstallation, LeavesASystemsOnlyMountAlone) {
    must("mkdir -p /tmp/merged/usr/bin && ln -s bin /tmp/merged/usr/sbin && echo debian "
         ">/tmp/merged/usr/bin/mount");
    const Outcome outcome =
        sh("DESTDIR=/tmp/merged " CMAKE_PROGRAM " --install " BUILD_DIRECTORY " --component compat");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("the adapters mount, umount and unshare are not installed"));
    EXPECT_EQ(text_of("/tmp/merged/usr/bin/mount"), "debian\n");
    EXPECT_EQ(sh("test -e /tmp/merged/usr/bin/umount").status, 1);
    EXPECT_EQ(sh("test -L /tmp/merged/usr/bin/unshare").status, 1);
    EXPECT_EQ(sh("test -x /tmp/merged/usr/bin/share").status, 0);
    EXPECT_EQ(sh("test -e /tmp/merged/usr/share/man/man8/hostadm-mount.8").status, 0);
}

TEST(MountInstallation, FollowsTheDestination) {
    const Outcome outcome = sh("mkdir -p /tmp/staged/usr/sbin && ln -s usr/sbin /tmp/staged/sbin && "
                               "DESTDIR=/tmp/staged " CMAKE_PROGRAM " --install " BUILD_DIRECTORY
                               " --component compat --prefix /opt/there");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    for (const char *const path : {"/sbin/mount", "/usr/sbin/umount", "/usr/sbin/share"})
        EXPECT_EQ(sh(std::string("test -x /tmp/staged") + path).status, 0) << path;
}

TEST(MountInstallation, DoesNotHideDebiansPages) {
    must("DESTDIR=/tmp/pages " CMAKE_PROGRAM " --install " BUILD_DIRECTORY " --component compat");
    for (const std::string name : {"mount", "umount"}) {
        EXPECT_EQ(sh("man -w 8 hostadm-" + name).status, 0);
        EXPECT_EQ(sh("test -e /tmp/pages/usr/share/man/man8/" + name + ".8").status, 1);
    }
}

} // namespace

int main(int argc, char **argv) {
    setenv("LC_ALL", "C", 1);
    return run_installed_tests(argc, argv);
}
