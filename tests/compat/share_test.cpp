// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <fstream>
#include <sys/socket.h>
#include <unistd.h>

#include "installed.hpp"

namespace {

using compat::daemons_named;
using compat::eventually;
using compat::must;
using compat::Outcome;
using compat::sh;
using compat::text_of;
using compat::write_text;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Share : public testing::Test {
protected:
    void SetUp() override {
        must("rm -rf /export /etc/dfs /etc/ganesha /etc/exports.d /tmp/readings /usr/sbin/exportfs");
        must("mkdir -p /export/home/inner /export/other /etc/ganesha");
        must("cp " STAND_IN " /usr/bin/ganesha.nfsd");
        must("printf '127.0.0.1 localhost\\n192.168.1.10 c1\\n192.168.1.11 c2\\n' >/etc/hosts");
    }
    void TearDown() override {
        for (const hostadm::base::Process &process : daemons_named("ganesha.nfsd"))
            kill(process.pid, SIGKILL);
    }

    static std::string list() { return sh("/usr/sbin/share").output; }
    static std::string exports() { return text_of("/etc/ganesha/share-exports.conf"); }
    // The settings of one export without their indentation.
    static std::string export_of(const std::string &path) {
        const std::string text = exports();
        const size_t at = text.find("Path = \"" + path + "\"");
        if (at == std::string::npos)
            return "(not exported)";
        const size_t start = text.rfind("EXPORT", at);
        return text.substr(start, text.find("\n}\n", at) - start);
    }
    static void expect_silence(const std::string &command) {
        const Outcome outcome = sh(command + " 2>&1");
        EXPECT_EQ(outcome.output, "") << command;
        EXPECT_EQ(outcome.status, 0) << command;
    }
    static void expect_complaint(const std::string &command, const std::string &text, int status = 1) {
        const Outcome outcome = sh(command + " 2>&1");
        EXPECT_THAT(outcome.output, HasSubstr(text)) << command;
        EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1) << outcome.output;
        EXPECT_EQ(outcome.status, status) << command;
    }
};

TEST_F(Share, IsSilentAndListed) {
    expect_silence("(set -f ; /usr/sbin/share -F nfs -o rw /export/home)");
    EXPECT_EQ(list(), "-  /export/home  rw  \"\"\n");
}

TEST_F(Share, ListsNothingWhenNothingIsShared) {
    EXPECT_EQ(list(), "");
}

TEST_F(Share, KeepsDescription) {
    expect_silence("/usr/sbin/share -F nfs -o ro -d 'all homes' /export/home");
    EXPECT_EQ(list(), "-  /export/home  ro  \"all homes\"\n");
}

TEST_F(Share, ListIsReadableByEveryone) {
    expect_silence("/usr/sbin/share /export/home");
    EXPECT_EQ(sh("setpriv --reuid 65534 --clear-groups /usr/sbin/share").output,
              "-  /export/home  rw  \"\"\n");
}

TEST_F(Share, SameDirectoryAgainReplacesOptions) {
    expect_silence("/usr/sbin/share -o rw /export/home");
    expect_silence("/usr/sbin/share -o rw /export/home");
    expect_silence("/usr/sbin/share -o ro /export/home");
    EXPECT_EQ(list(), "-  /export/home  ro  \"\"\n");
}

TEST_F(Share, SharesWhereALinkLeads) {
    must("ln -s home /export/link");
    expect_silence("/usr/sbin/share /export/link");
    EXPECT_EQ(list(), "-  /export/home  rw  \"\"\n");
    expect_silence("/usr/sbin/unshare /export/link");
    EXPECT_EQ(list(), "");
}

TEST_F(Share, RefusesDirectoryAroundAShare) {
    expect_silence("/usr/sbin/share /export/home");
    expect_complaint("/usr/sbin/share /export", "sub-directory (/export/home) already shared");
}

TEST_F(Share, RefusesDirectoryInsideAShare) {
    expect_silence("/usr/sbin/share /export");
    expect_complaint("/usr/sbin/share /export/home", "parent (/export) already shared");
}

// The expressions by which the library tells the complaints apart.
TEST_F(Share, ComplaintIsOfItsKindWhateverTheDirectoriesAreCalled) {
    const std::string sub_directory = "sed -n 's/.*sub-directory.*(\\(.*\\)) already.*shared.*/\\1/p'",
                      parent = "sed -n 's/.*parent.*(\\(.*\\)) already.*shared.*/\\1/p'";
    must("mkdir -p /export/sub-directory/parent /export/other/sub-directory/parent");
    expect_silence("/usr/sbin/share /export");
    const std::string inside = "/usr/sbin/share /export/sub-directory/parent 2>&1 | ";
    EXPECT_EQ(sh(inside + sub_directory).output, "");
    EXPECT_EQ(sh(inside + parent).output, "/export\n");
    expect_silence("/usr/sbin/unshare /export; /usr/sbin/share /export/sub-directory/parent");
    EXPECT_EQ(sh("/usr/sbin/share /export 2>&1 | " + sub_directory).output, "/export/sub-directory/parent\n");
}

TEST_F(Share, SimilarNameIsNoParent) {
    must("mkdir /export/homes");
    expect_silence("/usr/sbin/share /export/home");
    expect_silence("/usr/sbin/share /export/homes");
}

TEST_F(Share, AnotherFileSystemInsideIsAShareOfItsOwn) {
    must("mount -t tmpfs inner /export/home/inner");
    expect_silence("/usr/sbin/share /export/home");
    expect_silence("/usr/sbin/share /export/home/inner");
    must("umount /export/home/inner");
}

TEST_F(Share, RefusesMissingDirectory) {
    expect_complaint("/usr/sbin/share /export/none", "/export/none: No such file or directory");
}

TEST_F(Share, RefusesPlainFileWithTheRemedy) {
    must("touch /export/swapfile");
    expect_complaint("/usr/sbin/share /export/swapfile", "share the directory of this file");
}

TEST_F(Share, RefusesRelativePath) {
    expect_complaint("cd /export; /usr/sbin/share home", "not an absolute path");
}

TEST_F(Share, RefusesPathThatTheTablesCannotHold) {
    must("mkdir '/export/two words' '/export/a\"b' '/export/a;b' '/export/a(b)'");
    for (const char *const path :
         {"'/export/two words'", "'/export/a\"b'", "'/export/a;b'", "'/export/a(b)'"})
        expect_complaint(std::string("/usr/sbin/share ") + path, "in its path");
    expect_complaint("/usr/sbin/share -d two words /export/home", "must be quoted", 2);
}

TEST_F(Share, RefusesOtherTypesAndOptions) {
    expect_complaint("/usr/sbin/share -F ufs /export/home", "unknown file system type \"ufs\"", 2);
    expect_complaint("/usr/sbin/share -x /export/home", "try --help", 2);
    expect_complaint("/usr/sbin/share -o rw,nosub /export/home", "unknown option \"nosub\"");
    expect_complaint("/usr/sbin/share -o rw,ro /export/home", "exclude each other");
    expect_complaint("/usr/sbin/share -o rw= /export/home", "is no client");
    expect_complaint("/usr/sbin/share -o 'rw=c1:c 2' /export/home", "\"c 2\" is no client");
    expect_complaint("/usr/sbin/share -o anon=me /export/home", "is no user number");
    expect_complaint("/usr/sbin/share -o anon=-1 /export/home", "is no user number");
    expect_complaint("/usr/sbin/share -o '' /export/home", "unknown option \"\"");
    EXPECT_EQ(list(), "");
}

TEST_F(Share, WithoutServerSaysWhatToInstall) {
    must("rm /usr/bin/ganesha.nfsd");
    expect_complaint("/usr/sbin/share /export/home", "install the packages nfs-ganesha and nfs-ganesha-vfs");
    EXPECT_EQ(list(), "");
}

TEST_F(Share, EveryNameExplainsItself) {
    for (const char *const name : {"share", "unshare", "shareall", "unshareall"}) {
        const Outcome outcome = sh(std::string("/usr/sbin/") + name + " --help");
        EXPECT_THAT(outcome.output, StartsWith(std::string("usage: ") + name + " "));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(sh(std::string("man -w 8 ") + name).status, 0) << name;
    }
}

TEST_F(Share, UnshareHandsOtherCallsToDebiansProgramOfThatName) {
    for (const char *const call :
         {"--uts sh -c 'hostname elsewhere; hostname'", "-u sh -c 'hostname elsewhere; hostname'",
          "-fu sh -c 'hostname elsewhere; hostname'"}) {
        const Outcome outcome = sh(std::string("/usr/sbin/unshare ") + call);
        EXPECT_EQ(outcome.output, "elsewhere\n") << call;
        EXPECT_EQ(outcome.status, 0) << call;
    }
    EXPECT_THAT(sh("hostname").output, Not(HasSubstr("elsewhere")));
    EXPECT_THAT(sh("/usr/sbin/unshare --version").output, HasSubstr("util-linux"));
    EXPECT_EQ(sh("/usr/sbin/unshare --uts sh -c 'exit 7'").status, 7);
}

TEST_F(Share, UnshareKeepsItsOwnCalls) {
    expect_complaint("/usr/sbin/unshare /export/home", "/export/home: not shared");
    expect_complaint("/usr/sbin/unshare -F nfs /export/home", "/export/home: not shared");
    expect_complaint("/usr/sbin/unshare --type=nfs -- /export/home", "/export/home: not shared");
    expect_complaint("/usr/sbin/unshare -F ufs /export/home", "unknown file system type", 2);
    expect_complaint("/usr/sbin/unshare", "give one directory", 2);
}

TEST_F(Share, UnshareSaysWhereDebiansProgramOfThatNameComesFrom) {
    must("mv /usr/bin/unshare /usr/bin/unshare.away");
    expect_complaint("/usr/sbin/unshare --net true",
                     "/usr/bin/unshare is missing; install the package util-linux");
    must("mv /usr/bin/unshare.away /usr/bin/unshare");
}

TEST_F(Share, OptionsBecomeTheServersSettings) {
    expect_silence("/usr/sbin/share -o rw=c1:c2,root=c1 /export/home");
    const std::string text = export_of("/export/home");
    EXPECT_THAT(text, HasSubstr("    Access_Type = None;\n    Squash = root_squash;\n"));
    EXPECT_THAT(text, HasSubstr("    CLIENT { # c1\n    Clients = 192.168.1.10;\n    Access_Type = RW;\n"
                                "    Squash = no_root_squash;\n"));
    EXPECT_THAT(text, HasSubstr("    CLIENT { # c2\n    Clients = 192.168.1.11;\n    Access_Type = RW;\n"
                                "    Squash = root_squash;\n"));
}

TEST_F(Share, ReadOnlyForAllButOne) {
    expect_silence("/usr/sbin/share -o ro,rw=c1 /export/home");
    EXPECT_THAT(export_of("/export/home"), HasSubstr("    Access_Type = RO;\n    Squash = root_squash;\n"));
    EXPECT_THAT(export_of("/export/home"),
                HasSubstr("Clients = 192.168.1.10;\n    Access_Type = RW;\n    Squash = root_squash;\n"));
}

TEST_F(Share, AnonymousZeroKeepsRootsRights) {
    expect_silence("/usr/sbin/share -o ro,anon=0 /export/home");
    EXPECT_THAT(export_of("/export/home"),
                HasSubstr("Access_Type = RO;\n    Squash = no_root_squash;\n    Protocols = 3, 4;\n"
                          "    Anonymous_Uid = 0;\n"));
}

TEST_F(Share, RootAloneGivesNoAccess) {
    expect_silence("/usr/sbin/share -o rw=c1,root=c2 /export/home");
    EXPECT_THAT(export_of("/export/home"), Not(HasSubstr("192.168.1.11")));
}

TEST_F(Share, NetworksAndDomainsAreClients) {
    expect_silence("/usr/sbin/share -o rw=@192.168.1.0/24:.example.com /export/home");
    EXPECT_THAT(export_of("/export/home"), HasSubstr("Clients = 192.168.1.0/24;"));
    EXPECT_THAT(export_of("/export/home"), HasSubstr("Clients = *.example.com;"));
}

TEST_F(Share, ClientWithoutAddressDoesNotSpoilTheShare) {
    expect_silence("/usr/sbin/share -o rw=c1:stranger /export/home");
    EXPECT_THAT(export_of("/export/home"), HasSubstr("Clients = 192.168.1.10;"));
    EXPECT_THAT(export_of("/export/home"), HasSubstr("# stranger has no address yet"));
}

// By itself the look-up of one name would take ten seconds, and there are two shares to look it up for.
TEST_F(Share, SilentNameServerHoldsNothingUp) {
    const hostadm::base::Descriptor silent(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(silent.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    must("cp /etc/nsswitch.conf /tmp/nsswitch.conf; echo 'hosts: files dns' >/etc/nsswitch.conf");
    must("rm -f /etc/resolv.conf; echo 'nameserver 127.0.0.1' >/etc/resolv.conf; mkdir -p /etc/dfs");
    write_text("/etc/dfs/sharetab", "/export/other\t-\tnfs\trw=stranger\t\n");
    expect_silence("timeout 8 /usr/sbin/share -o rw=c1:stranger /export/home");
    EXPECT_THAT(export_of("/export/home"), HasSubstr("# stranger has no address yet"));
    must("mv /tmp/nsswitch.conf /etc/nsswitch.conf; rm /etc/resolv.conf");
}

TEST_F(Share, NumberStaysWithItsPath) {
    expect_silence("/usr/sbin/share /export/home");
    expect_silence("/usr/sbin/share /export/other");
    expect_silence("/usr/sbin/unshare /export/home");
    must("mkdir /export/third");
    expect_silence("/usr/sbin/share /export/third");
    expect_silence("/usr/sbin/share /export/home");
    EXPECT_THAT(export_of("/export/home"), HasSubstr("Export_Id = 1;"));
    EXPECT_THAT(export_of("/export/other"), HasSubstr("Export_Id = 2;"));
    EXPECT_THAT(export_of("/export/third"), HasSubstr("Export_Id = 3;"));
}

TEST_F(Share, WhenNumbersRunOutTheOldestUnusedOneIsTaken) {
    must("mkdir -p /etc/dfs; seq 1 65535 | sed 's,.*,& /gone/&,' >/etc/dfs/exportids");
    must("sed -i 's,^1 .*,1 /export/other,' /etc/dfs/exportids");
    expect_silence("/usr/sbin/share /export/other");
    expect_silence("/usr/sbin/share /export/home");
    EXPECT_THAT(export_of("/export/other"), HasSubstr("Export_Id = 1;"));
    EXPECT_THAT(export_of("/export/home"), HasSubstr("Export_Id = 2;"));
}

TEST_F(Share, RunningServerReadsItsExportsAgain) {
    sh("/usr/bin/ganesha.nfsd >/dev/null 2>&1 &");
    ASSERT_TRUE(eventually([] { return !daemons_named("ganesha.nfsd").empty(); }));
    expect_silence("/usr/sbin/share /export/home"); // while the server is still starting
    EXPECT_TRUE(
        eventually([] { return text_of("/tmp/readings").find("/export/home") != std::string::npos; }));
    expect_silence("/usr/sbin/unshare /export/home");
    EXPECT_TRUE(eventually([] {
        const std::string readings = text_of("/tmp/readings");
        return readings.substr(readings.rfind("== read")).find("/export/home") == std::string::npos;
    }));
    EXPECT_EQ(daemons_named("ganesha.nfsd").size(), 1U);
}

TEST_F(Share, TwentyAtOnceLoseNothing) {
    must("for i in $(seq 20); do mkdir /export/other/$i; done");
    expect_silence("for i in $(seq 20); do /usr/sbin/share -o rw=c1 /export/other/$i & done; wait");
    EXPECT_EQ(sh("/usr/sbin/share | sort -u | wc -l").output, "20\n");
    EXPECT_EQ(sh("grep -c '^EXPORT' /etc/ganesha/share-exports.conf").output, "20\n");
    EXPECT_EQ(sh("grep Export_Id /etc/ganesha/share-exports.conf | sort -u | wc -l").output, "20\n");
    expect_silence("for i in $(seq 20); do /usr/sbin/unshare /export/other/$i & done; wait");
    EXPECT_EQ(list(), "");
}

// Killed before each of its replacements of a file, share leaves the
// old or the new text, and the next run puts everything in order.
TEST_F(Share, KilledAnywhereLeavesWholeFiles) {
    for (int when = 1; when <= 3; ++when) {
        SetUp();
        expect_silence("/usr/sbin/share /export/home");
        sh("ASAN_OPTIONS=detect_leaks=0 strace -f -o /dev/null -e inject=rename:signal=KILL:when=" +
           std::to_string(when) + " /usr/sbin/share /export/other");
        EXPECT_THAT(list(), StartsWith("-  /export/home  rw  \"\"\n")) << when;
        EXPECT_THAT(exports(), HasSubstr("/export/home")) << when;
        const std::string text = exports();
        EXPECT_EQ(std::count(text.begin(), text.end(), '{'), std::count(text.begin(), text.end(), '}'));
        expect_silence("/usr/sbin/share /export/other");
        EXPECT_EQ(list(), "-  /export/home  rw  \"\"\n-  /export/other  rw  \"\"\n") << when;
        EXPECT_THAT(export_of("/export/other"), HasSubstr("Export_Id = 2;")) << when;
        EXPECT_EQ(sh("ls -A /etc/dfs").output, "exportids\nsharetab\n") << when;
    }
}

TEST_F(Share, FullDiskIsReportedAndChangesNothing) {
    must("mkdir -p /etc/dfs && mount -t tmpfs -o size=64k small /etc/dfs");
    expect_silence("/usr/sbin/share /export/home");
    sh("dd if=/dev/zero of=/etc/dfs/filler bs=1k 2>/dev/null");
    expect_complaint("/usr/sbin/share /export/other", "No space left on device");
    EXPECT_EQ(list(), "-  /export/home  rw  \"\"\n");
    must("umount /etc/dfs");
}

TEST_F(Share, UnshareWithdrawsAndIsSilent) {
    expect_silence("/usr/sbin/share /export/home");
    expect_silence("(set -f ; /usr/sbin/unshare -F nfs /export/home)");
    EXPECT_EQ(list(), "");
    EXPECT_EQ(export_of("/export/home"), "(not exported)");
}

TEST_F(Share, UnshareOfWhatIsNotSharedSaysSo) {
    expect_complaint("/usr/sbin/unshare -F nfs /export/home", "not shared");
    expect_complaint("/usr/sbin/unshare", "give one directory", 2);
}

TEST_F(Share, UnshareWorksWhenTheDirectoryIsGone) {
    expect_silence("/usr/sbin/share /export/home");
    must("rm -r /export/home");
    expect_silence("/usr/sbin/unshare /export/home");
    EXPECT_EQ(list(), "");
}

TEST_F(Share, UnshareWorksWhenTheServerIsGone) {
    expect_silence("/usr/sbin/share /export/home");
    must("rm /usr/bin/ganesha.nfsd");
    expect_silence("/usr/sbin/unshare /export/home");
    EXPECT_EQ(list(), "");
}

TEST_F(Share, AllSharesTheLinesOfTheTable) {
    must("mkdir -p /etc/dfs");
    write_text("/etc/dfs/dfstab", "# what this server shares\n\n"
                                  "share -F nfs -o rw=c1,root=c1 /export/home   # c1's\n"
                                  "#share -F nfs -o rw /export/none\n"
                                  "\tshare  -F nfs -o ro -d \"two words\" /export/other\n");
    expect_silence("/usr/sbin/shareall");
    EXPECT_EQ(list(), "-  /export/home  rw=c1,root=c1  \"\"\n-  /export/other  ro  \"two words\"\n");
    expect_silence("/usr/sbin/shareall");
    EXPECT_EQ(list(), "-  /export/home  rw=c1,root=c1  \"\"\n-  /export/other  ro  \"two words\"\n");
}

TEST_F(Share, AllReportsABadLineAndSharesTheOthers) {
    must("mkdir -p /etc/dfs");
    write_text("/etc/dfs/dfstab", "share -F nfs /export/none\n"
                                  "rm -rf /export\n"
                                  "share -F nfs -d \"open /export/other\n"
                                  "share -F nfs /export/home");
    const Outcome outcome = sh("/usr/sbin/shareall 2>&1");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "shareall: /etc/dfs/dfstab line 1: /export/none: No such file or directory\n"
                              "shareall: /etc/dfs/dfstab line 2: not a share command: \"rm\"\n"
                              "shareall: /etc/dfs/dfstab line 3: no closing \"\n");
    EXPECT_EQ(list(), "-  /export/home  rw  \"\"\n");
}

// As hostadm leaves the table when a directory is shared whose parent is shared with the same options.
TEST_F(Share, AllIsDoneWithALineThatItsParentServes) {
    must("mkdir -p /etc/dfs");
    write_text("/etc/dfs/dfstab", "share -F nfs -o ro /export\nshare -F nfs -o ro /export/home\n");
    expect_silence("/usr/sbin/shareall --boot");
    EXPECT_EQ(list(), "-  /export  ro  \"\"\n");
    write_text("/etc/dfs/dfstab", "share -F nfs -o ro /export\nshare -F nfs -o rw /export/home\n");
    expect_complaint("/usr/sbin/shareall --boot", "line 2: parent (/export) already shared");
    EXPECT_EQ(list(), "-  /export  ro  \"\"\n");
}

TEST_F(Share, AllAtBootForgetsWhatIsNotInTheTable) {
    must("mkdir -p /etc/dfs; echo 'share -F nfs /export/home' >/etc/dfs/dfstab");
    expect_silence("/usr/sbin/share /export/other");
    expect_silence("/usr/sbin/shareall --boot");
    EXPECT_EQ(list(), "-  /export/home  rw  \"\"\n");
}

TEST_F(Share, AllWithoutTableSharesNothing) {
    expect_silence("/usr/sbin/shareall");
    expect_complaint("/usr/sbin/shareall /etc/dfs/none", "no such file");
}

TEST_F(Share, UnshareAllWithdrawsEverything) {
    expect_silence("/usr/sbin/share /export/home");
    expect_silence("/usr/sbin/share /export/other");
    expect_silence("/usr/sbin/unshareall");
    expect_silence("/usr/sbin/unshareall");
    EXPECT_EQ(list(), "");
    EXPECT_THAT(exports(), Not(HasSubstr("EXPORT")));
}

class KernelServer : public Share {
protected:
    void SetUp() override {
        Share::SetUp();
        must("rm /usr/bin/ganesha.nfsd");
        write_text("/usr/sbin/exportfs",
                   "#!/bin/sh\necho \"$*\" >>/tmp/readings\n"
                   "if [ -e /tmp/broken ]; then echo 'exportfs: broken' >&2; exit 1; fi\n");
        must("chmod 755 /usr/sbin/exportfs; rm -f /tmp/broken");
    }
    static std::string exports() { return text_of("/etc/exports.d/share.exports"); }
};

TEST_F(KernelServer, GetsItsFileAndIsTold) {
    expect_silence("/usr/sbin/share -o ro,rw=c1,root=c1 /export/home");
    EXPECT_THAT(exports(), HasSubstr("\n/export/home 192.168.1.10(rw,no_root_squash,no_subtree_check,sync) "
                                     "*(ro,root_squash,no_subtree_check,sync)\n"));
    EXPECT_EQ(text_of("/tmp/readings"), "-ra\n");
    expect_silence("/usr/sbin/unshare /export/home");
    EXPECT_THAT(exports(), Not(HasSubstr("/export/home")));
}

TEST_F(KernelServer, SharesPlainFiles) {
    must("touch /export/swapfile");
    expect_silence("/usr/sbin/share -o rw=c1,anon=0 /export/swapfile");
    EXPECT_THAT(exports(), HasSubstr("/export/swapfile 192.168.1.10(rw,no_root_squash,no_subtree_check,sync,"
                                     "anonuid=0)\n"));
}

// A path without any client would be open to the whole world.
TEST_F(KernelServer, ShareWithoutKnownClientIsLeftOut) {
    expect_silence("/usr/sbin/share -o rw=stranger /export/home");
    EXPECT_THAT(exports(), Not(HasSubstr("/export/home")));
    EXPECT_EQ(list(), "-  /export/home  rw=stranger  \"\"\n");
}

TEST_F(KernelServer, RefusalLeavesEverythingAsBefore) {
    expect_silence("/usr/sbin/share /export/home");
    must("touch /tmp/broken");
    expect_complaint("/usr/sbin/share /export/other", "exportfs: broken");
    EXPECT_EQ(list(), "-  /export/home  rw  \"\"\n");
    EXPECT_THAT(exports(), Not(HasSubstr("/export/other")));
}

} // namespace

int main(int argc, char **argv) {
    return run_installed_tests(argc, argv);
}
