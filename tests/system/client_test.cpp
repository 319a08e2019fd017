// SPDX-License-Identifier: MIT
// The main job from end to end, through the command: a client is added from a small ready tree, each step
// fails in turn, and the client goes again. Sharing and the NFS daemons are played by stand-ins.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/eventually.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::write;

const std::string share_command = "/usr/sbin/share", unshare_command = "/usr/sbin/unshare";

// A share command that keeps a list, and complains as its file says.
const std::string share_script = R"(
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
[ -f /complain-share$(echo $1 | tr / -) ] && { echo "share: $1: no"; exit 1; }
[ ! -f /slow-share ] || { : >/slow-share-began; while [ -f /slow-share ]; do sleep 0.05; done; }
echo "-  $1  $opts  \"\"" >>$tab)";
const std::string unshare_script = R"(
shift 2
[ -f /complain-unshare ] && { echo "unshare: $1: busy"; exit 1; }
[ ! -f /slow-unshare ] || { : >/slow-unshare-began; while [ -f /slow-unshare ]; do sleep 0.05; done; }
sed -i "\\|  $1  |d" /etc/dfs/sharetab)";

struct Ran {
    int status = 0;
    std::string errors;
    nlohmann::json results;

    // STEP: RESULT of each row but the warnings.
    std::vector<std::string> steps() const {
        std::vector<std::string> all;
        for (const auto &row : results.at("rows"))
            if (row.at("result") != "warning")
                all.push_back(row.at("step").get<std::string>() + ": " + row.at("result").get<std::string>());
        return all;
    }
    std::vector<std::string> warnings() const {
        std::vector<std::string> all;
        for (const auto &row : results.at("rows"))
            if (row.at("result") == "warning")
                all.push_back(row.at("step").get<std::string>() + ": " + row.at("detail").get<std::string>());
        return all;
    }
};

std::string hostadm() {
    return fs::read_symlink("/proc/self/exe").parent_path() / "hostadm";
}

Ran run(const std::string &words) {
    static std::atomic<int> number = 0;
    const std::string name = std::string("/tmp/run") + std::to_string(++number);
    Ran result;
    const int status =
        std::system((hostadm() + " " + words + " >" + name + ".out 2>" + name + ".err").c_str());
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.errors = content(name + ".err");
    result.results = nlohmann::json::parse(content(name + ".out"), nullptr, false);
    return result;
}

Ran method(const std::string &words) {
    return run("run --json " + words);
}

// Everything that a client leaves on a server: types, modes,
// owners, link targets, contents, and times if wanted.
std::string snapshot(bool times = false) {
    std::string all;
    const auto describe = [&](const fs::path &path) {
        struct stat file {};
        if (lstat(path.c_str(), &file) != 0)
            return;
        all += path.string() + " " + std::to_string(file.st_mode) + " " + std::to_string(file.st_uid);
        if (times && !S_ISDIR(file.st_mode))
            all += std::string(" ") + std::to_string(file.st_mtim.tv_sec) + "." +
                   std::to_string(file.st_mtim.tv_nsec) + " " + std::to_string(file.st_ino);
        if (S_ISLNK(file.st_mode))
            all += std::string(" -> ") + fs::read_symlink(path).string();
        else if (S_ISREG(file.st_mode))
            all += std::string(" ") + std::to_string(file.st_size) +
                   (file.st_size < 4096 ? ": " + content(path) : "");
        all += "\n";
    };
    for (const char *table :
         {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab", "/etc/dfs/sharetab"})
        describe(table);
    for (const char *area : {"/export", "/tftpboot"}) {
        describe(area);
        std::vector<fs::path> paths;
        std::error_code error;
        for (const auto &entry : fs::recursive_directory_iterator(area, error))
            paths.push_back(entry.path());
        std::sort(paths.begin(), paths.end());
        for (const fs::path &path : paths)
            describe(path);
    }
    return all;
}

const std::string identity = " instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5";
const std::string server = " server=server1";
const std::string c1 = "hostname=c1 address=10.1.2.3 ethernet=8:0:20:A:b:C" + identity + server;
const std::string c2 = "hostname=c2 address=10.1.2.4 ethernet=8:0:20:A:b:d" + identity + server;
const std::string tree = " tree=/tree";

class Client : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        standin::reset();
        standin::place(share_command, {.script = share_script});
        standin::place(unshare_command, {.script = unshare_script});
        if (!fs::exists("/usr/lib/nfs/nfsd")) {
            for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
                standin::place(daemon, {.stay = true});
                standin::start(daemon, "-a");
            }
        }
        for (const char *path :
             {"/export", "/tftpboot", "/tree", "/etc/dfs", "/etc/ethers", "/etc/bootparams",
              "/complain-share-export-root-c1", "/complain-share-export-swap-c1", "/slow-share",
              "/slow-share-began", "/var/lib/hostadm", "/complain-unshare", "/slow-unshare",
              "/slow-unshare-began"})
            fs::remove_all(path);
        write("/etc/hosts", "# hosts\n127.0.0.1\tlocalhost\n10.1.2.1\tserver1\n");
        write("/tree/etc/motd", "welcome\n");
        write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
        fs::create_hard_link("/tree/etc/motd", "/tree/etc/issue");
        fs::create_symlink("../etc/motd", "/tree/usr/motd");
        fs::permissions("/tree/etc", fs::perms::owner_all | fs::perms::group_write);
        write("/etc/dfs/dfstab", "# shares\n");
        write("/etc/ethers", "# ethers\n");
        write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
        write("/etc/dfs/sharetab", "");
    }
    // Adds c1 and expects that it fails with these words and leaves everything as it was.
    void expect_undone(const std::string &words, const std::string &arguments = c1 + tree) {
        const std::string before = snapshot();
        const Ran added = method("client/add_diskless " + arguments);
        EXPECT_EQ(added.status, 1);
        EXPECT_THAT(added.errors, HasSubstr(words));
        EXPECT_THAT(added.errors, HasSubstr("everything that was done for c1 has been taken back"));
        EXPECT_THAT(added.errors, Not(HasSubstr("left half done")));
        EXPECT_EQ(snapshot(), before);
    }
    void expect_one_winner(const std::string &first, const std::string &second,
                           const std::vector<std::string> &told);
    void expect_refused(const std::string &words, const std::string &arguments) {
        const std::string before = snapshot(true);
        const Ran added = method("client/add_diskless " + arguments);
        EXPECT_NE(added.status, 0);
        EXPECT_THAT(added.errors, HasSubstr(words));
        EXPECT_EQ(snapshot(true), before) << arguments;
    }
};

std::size_t admin_files() {
    std::size_t count = 0;
    for (const auto &entry : fs::directory_iterator("/tmp"))
        count += entry.path().filename().string().starts_with("admin.");
    return count;
}

// A file that can be read but not replaced.
class Pinned {
public:
    explicit Pinned(const std::string &path) : path_(path) {
        mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr);
    }
    ~Pinned() { umount(path_.c_str()); }

private:
    std::string path_;
};

class SmallDisk {
public:
    SmallDisk(const std::string &path, const char *size) : path_(path) {
        fs::create_directories(path);
        mount("small", path_.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str());
    }
    ~SmallDisk() { umount2(path_.c_str(), MNT_DETACH); }

private:
    std::string path_;
};

} // namespace

TEST_F(Client, IsAddedWithAllThatItNeeds) {
    const Ran added = method("client/add_diskless " + c1 + tree + " swap_size=64k");
    ASSERT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.steps(),
                ElementsAre("root: done", "swap: done", "share: done", "share: done", "boot program: done",
                            "boot links: done", "bootparams: done", "hosts: done", "ethers: done"));
    EXPECT_EQ(content("/etc/hosts"), "# hosts\n127.0.0.1\tlocalhost\n10.1.2.1\tserver1\n10.1.2.3\tc1\n");
    EXPECT_EQ(content("/etc/ethers"), "# ethers\n08:00:20:0a:0b:0c\tc1\n");
    EXPECT_EQ(content("/etc/bootparams"),
              "other root=elsewhere:/export/root/other\n"
              "c1 root=server1:/export/root/c1 swap=server1:/export/swap/c1/swap boottype=:di\n");
    EXPECT_EQ(content("/etc/dfs/dfstab"), "# shares\nshare -F nfs -o rw=c1,root=c1 /export/root/c1\n"
                                          "share -F nfs -o rw=c1,root=c1 /export/swap/c1\n");
    EXPECT_EQ(content("/etc/dfs/sharetab"), "-  /export/root/c1  rw=c1,root=c1  \"\"\n"
                                            "-  /export/swap/c1  rw=c1,root=c1  \"\"\n");
    for (const char *link : {"/tftpboot/0A010203", "/tftpboot/0A010203.KEL4M"})
        EXPECT_EQ(fs::read_symlink(link), "inetboot.kel4m.Quorvel_2.5") << link;
    EXPECT_EQ(fs::read_symlink("/tftpboot/tftpboot"), ".");
    EXPECT_EQ(content("/tftpboot/0A010203"), "boot program");
}

TEST_F(Client, HasARootLikeTheTreeAndASparseSwapFileOfItsOwn) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree + " swap_size=1g").status, 0);
    EXPECT_EQ(content("/export/root/c1/usr/motd"), "welcome\n");
    EXPECT_TRUE(fs::equivalent("/export/root/c1/etc/motd", "/export/root/c1/etc/issue")) << "hard links stay";
    EXPECT_EQ(fs::status("/export/root/c1/etc").permissions(), fs::perms::owner_all | fs::perms::group_write);
    struct stat swap {};
    ASSERT_EQ(stat("/export/swap/c1/swap", &swap), 0);
    EXPECT_EQ(swap.st_size, 1 << 30);
    EXPECT_LT(swap.st_blocks, 100);
    EXPECT_EQ(swap.st_mode & 07777, 0600u);
}

TEST_F(Client, HasTheTreesModesInARootThatWasMadeBefore) {
    fs::create_directories("/export/root/c1");
    chmod("/export/root/c1", 02700); // as a directory below one of ours comes to be
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    for (const char *path : {"", "/usr", "/usr/platform/kel4m"})
        EXPECT_EQ(fs::status(std::string("/export/root/c1") + path).permissions(),
                  fs::status(std::string("/tree") + path).permissions())
            << path;
}

TEST_F(Client, IsNotChangedByASecondRun) {
    const std::string again = "client/add_diskless " + c1 + tree + " dumppath=/export/dump/c1/dump";
    ASSERT_EQ(method(again).status, 0);
    const std::string before = snapshot(true);
    const Ran second = method(again);
    EXPECT_EQ(second.status, 0) << second.errors;
    EXPECT_EQ(snapshot(true), before);
    EXPECT_THAT(second.steps(), Each(testing::EndsWith(": unchanged")));
    EXPECT_EQ(second.steps().size(), 11u);
}

TEST_F(Client, MayGetADumpFileLater) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const Ran added = method("client/add_diskless " + c1 + tree + " dumppath=/export/dump/c1/dump");
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.steps(), Contains("dump: done"));
    EXPECT_THAT(content("/etc/bootparams"), HasSubstr(" dump=server1:/export/dump/c1/dump\n"));
}

TEST_F(Client, IsToldThatAnotherBootProgramStays) {
    write("/other/boot", "another boot program\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const Ran told = method("client/add_diskless " + c2 + tree + " boot_program=/other/boot");
    EXPECT_EQ(told.status, 0) << told.errors;
    EXPECT_THAT(told.warnings(), Contains(HasSubstr("differs from /other/boot and stays")));
    const std::string program = "/tftpboot/inetboot.kel4m.Quorvel_2.5";
    const Ran same = method("client/add_diskless " + c2 + tree + " boot_program=" + program);
    EXPECT_THAT(same.warnings(), Not(Contains(HasSubstr("differs"))));
}

TEST_F(Client, MayHaveADumpFile) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree + " dumppath=/export/dump/c1/dump").status, 0);
    EXPECT_THAT(content("/etc/bootparams"), HasSubstr(" dump=server1:/export/dump/c1/dump boottype=:di "));
    EXPECT_TRUE(fs::exists("/export/dump/c1/dump"));
    EXPECT_THAT(content("/etc/dfs/dfstab"), HasSubstr("/export/dump/c1\n"));
}

TEST_F(Client, EthernetAddressIsStoredInOneSpelling) {
    for (const char *spelling :
         {"08-00-20-0A-0B-0C", "0800.200a.0b0c", "0800200A0B0C", "08:00:20:0a:0b:0c", "8:0:20:a:b:c"}) {
        const Ran added =
            method("client/add_diskless hostname=c1 address=10.1.2.3 ethernet=" + std::string(spelling) +
                   identity + server + tree);
        EXPECT_EQ(added.status, 0) << spelling << added.errors;
        EXPECT_EQ(content("/etc/ethers"), "# ethers\n08:00:20:0a:0b:0c\tc1\n") << spelling;
    }
}

TEST_F(Client, OfAnOldReleaseHasItsTreeCopiedToo) {
    if (!fs::exists("/usr/bin/cpio"))
        GTEST_SKIP() << "cpio is not installed";
    write("/tree/boot/boot.kel4m.Quorvel.4.1.3", "old boot program");
    const std::size_t before = admin_files();
    const Ran added =
        method("client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:1:2:3 instruction_set=kel4 "
               "implementation_arch=kel4m os_name=Quorvel os_version=4.1.3 tree=/tree" +
               server);
    ASSERT_EQ(added.status, 0) << added.errors;
    EXPECT_EQ(added.errors, "") << "the copying command's words are no failure";
    EXPECT_EQ(content("/export/root/c1/usr/motd"), "welcome\n");
    EXPECT_EQ(content("/tftpboot/0A010203.KEL4M"), "old boot program");
    EXPECT_EQ(admin_files(), before);
}

TEST_F(Client, MayBeMadeFromPackages) {
    standin::place("/usr/sbin/pkgadd", {.script = R"(
root=$4; spool=$8
mkdir -p $root/usr/platform/kel4m/lib/fs/nfs $root/var/sadm/install_data
cp $spool/KTVXboot/inetboot $root/usr/platform/kel4m/lib/fs/nfs/inetboot
cp $6 $root/admin
echo "Installation of <KTVXboot> was successful.")"});
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    write("/spool/KTVXboot/inetboot", "from a package");
    for (const char *file : {"install_data/.clustertoc", "install_data/CLUSTER", "softinfo/INST_RELEASE"})
        write(std::string("/export/Quorvel_2.5/var/sadm/") + file, file);
    const Ran added = method("client/add_diskless " + c1 + " packages=/spool");
    ASSERT_EQ(added.status, 0) << added.errors;
    EXPECT_EQ(added.errors, "");
    EXPECT_EQ(content("/tftpboot/0A010203"), "from a package") << "found in the client's new root";
    EXPECT_EQ(content("/export/root/c1/var/sadm/install_data/CLUSTER"), "install_data/CLUSTER");
    EXPECT_THAT(content("/export/root/c1/admin"), HasSubstr("space=quit\n"));
}

TEST_F(Client, GoesAgainWhenItsPackagesCannotBeInstalled) {
    standin::place("/usr/sbin/pkgadd", {.error = "pkgadd: not enough space\n", .status = 1});
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    expect_undone("not enough space", c1 + " packages=/spool");
}

TEST_F(Client, OfPackagesGetsACatalogueWhereThereIsNone) {
    standin::place("/usr/sbin/pkgadd", {.script = R"(
mkdir -p $4/usr/platform/kel4m/lib/fs/nfs
echo boot >$4/usr/platform/kel4m/lib/fs/nfs/inetboot)"});
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    const Ran added = method("client/add_diskless " + c1 + " packages=/spool");
    ASSERT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.steps(), Contains("catalogue: done"));
    EXPECT_THAT(content("/export/root/c1/var/sadm/install_data/.clustertoc"), HasSubstr("MEMBER=KTVXboot\n"));
    EXPECT_EQ(content("/export/root/c1/var/sadm/softinfo/INST_RELEASE"), "OS=Quorvel\nVERSION=2.5\n");
}

TEST_F(Client, GoesAgainWithTheCatalogueThatItBrought) {
    standin::place("/usr/sbin/pkgadd", {.error = "pkgadd: checksum\n", .status = 1});
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    expect_undone("checksum", c1 + " packages=/spool");
}

TEST_F(Client, GoesAgainWhenTheDiskIsFull) {
    const SmallDisk disk("/export", "64k");
    write("/tree/usr/large", std::string(200'000, 'x'));
    expect_undone("No space left on device");
}

TEST_F(Client, LeavesNothingToTakeBackWhereNothingCanBeWritten) {
    const SmallDisk disk("/export", "64k");
    mount(nullptr, "/export", nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
    const std::string before = snapshot();
    const Ran added = method("client/add_diskless " + c1 + tree);
    EXPECT_EQ(added.status, 1);
    EXPECT_THAT(added.errors, AllOf(HasSubstr("cannot make /export/root: Read-only file system"),
                                    Not(HasSubstr("left half done"))));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(Client, GoesAgainWhenItsSwapFileCannotBeMade) {
    write("/export/swap/file", "");
    expect_undone("cannot make /export/swap/file", c1 + tree + " swappath=/export/swap/file/c1/swap");
}

TEST_F(Client, GoesAgainWhenItsRootCannotBeShared) {
    write("/complain-share-export-root-c1", "");
    expect_undone("share: /export/root/c1: no");
}

TEST_F(Client, GoesAgainWhenItsSwapCannotBeShared) {
    write("/complain-share-export-swap-c1", "");
    expect_undone("share: /export/swap/c1: no");
}

TEST_F(Client, GoesAgainWhenTheBootDirectoryCannotBeMade) {
    write("/tftpboot", "in the way");
    expect_undone("/tftpboot");
}

TEST_F(Client, GoesAgainWhenTheBootProgramCannotBeCopied) {
    const SmallDisk disk("/tftpboot", "16k");
    fs::create_symlink(".", "/tftpboot/tftpboot");
    write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", std::string(100'000, 'x'));
    expect_undone("cannot copy the boot program");
}

TEST_F(Client, GoesAgainWhenAFileStandsInThePlaceOfALink) {
    write("/tftpboot/0A010203.OLD", "no link");
    fs::create_symlink(".", "/tftpboot/tftpboot");
    expect_undone("is no link");
}

TEST_F(Client, GoesAgainWhenATableCannotBeEdited) {
    fs::create_directory("/tftpboot");
    fs::create_symlink(".", "/tftpboot/tftpboot");
    for (const char *table : {"/etc/dfs/dfstab", "/etc/bootparams", "/etc/hosts", "/etc/ethers"}) {
        SCOPED_TRACE(table);
        const Pinned pinned(table);
        expect_undone(table);
    }
}

TEST_F(Client, LeavesWhatWasThereBefore) {
    fs::create_directories("/export/root/c1");
    fs::permissions("/export/root/c1", fs::perms::owner_all);
    write("/tftpboot/inetboot.kel4m.Quorvel_2.5", "older");
    fs::create_symlink("inetboot.kel4m.Quorvel_2.5", "/tftpboot/0A010299");
    fs::create_symlink("older.boot", "/tftpboot/0A010203");
    fs::create_symlink(".", "/tftpboot/tftpboot");
    const Pinned pinned("/etc/ethers");
    expect_undone("/etc/ethers");
}

TEST_F(Client, SaysWhatCouldNotBeTakenBack) {
    write("/complain-share-export-swap-c1", "");
    write("/complain-unshare", "");
    const Ran added = method("client/add_diskless " + c1 + tree);
    EXPECT_EQ(added.status, 1);
    EXPECT_THAT(added.errors,
                HasSubstr("left half done: could not be taken back: the share of /export/root/c1"));
    EXPECT_THAT(added.errors, Not(HasSubstr("has been taken back")));
    EXPECT_FALSE(fs::exists("/export/root/c1"));
}

TEST_F(Client, GoesAgainWhenTheRunIsInterrupted) {
    // The older of the two processes of that name answers for the other.
    for (const auto &[signal, program] : {std::pair("INT", "add_diskless"),
                                          {"TERM", "add_diskless"},
                                          {"TERM", "hostadm"},
                                          {"HUP", "hostadm"}}) {
        fs::remove("/slow-share-began");
        write("/slow-share", "");
        const std::string before = snapshot();
        auto adding =
            std::async(std::launch::async, [] { return method("client/add_diskless " + c1 + tree); });
        EXPECT_TRUE(tests::eventually([] { return fs::exists("/slow-share-began"); }));
        std::system((std::string("pkill -o -x -") + signal + " " + program).c_str());
        const Ran added = adding.get();
        EXPECT_EQ(added.status, 1);
        EXPECT_THAT(added.errors, HasSubstr(std::string("interrupted (SIG") + signal + ")"));
        EXPECT_THAT(added.errors, HasSubstr("has been taken back"));
        EXPECT_EQ(snapshot(), before);
    }
}

// Both are the first of this server, so both may want to make the same directories and tables.
TEST_F(Client, AndAnotherAreAddedAtOnce) {
    constexpr int rounds = 20;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SetUp();
        for (const char *table : {"/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab"})
            fs::remove(table);
        auto first =
            std::async(std::launch::async, [] { return method("client/add_diskless " + c1 + tree); });
        auto second =
            std::async(std::launch::async, [] { return method("client/add_diskless " + c2 + tree); });
        const Ran one = first.get(), other = second.get();
        EXPECT_EQ(one.status, 0) << one.errors;
        EXPECT_EQ(other.status, 0) << other.errors;
        for (const std::string table : {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab"})
            EXPECT_THAT(content(table), AllOf(HasSubstr("c1"), HasSubstr("c2"))) << table;
        for (const char *link : {"/tftpboot/0A010203", "/tftpboot/0A010204.KEL4M"})
            EXPECT_EQ(content(link), "boot program");
    }
}

TEST_F(Client, IsWorkedOnByOneRunAtATime) {
    write("/slow-share", "");
    auto adding = std::async(std::launch::async, [] { return method("client/add_diskless " + c1 + tree); });
    EXPECT_TRUE(tests::eventually([] { return fs::exists("/slow-share-began"); }));
    EXPECT_THAT(method("client/add_diskless " + c1 + tree).errors,
                HasSubstr("somebody else is working on c1"));
    EXPECT_THAT(method("client/remove hostname=c1").errors, HasSubstr("somebody else is working on c1"));
    std::system("pkill -o -x add_diskless");
    adding.get();
}

TEST_F(Client, IsLockedUntilEverythingIsTakenBack) {
    write("/complain-share-export-swap-c1", "");
    write("/slow-unshare", "");
    auto adding = std::async(std::launch::async, [] { return method("client/add_diskless " + c1 + tree); });
    EXPECT_TRUE(tests::eventually([] { return fs::exists("/slow-unshare-began"); }));
    EXPECT_THAT(method("client/add_diskless " + c1 + tree).errors,
                HasSubstr("somebody else is working on c1"));
    fs::remove("/slow-unshare");
    EXPECT_THAT(adding.get().errors, HasSubstr("has been taken back"));
}

// Both started together, many times: exactly one gets what both want, the other is told, and leaves it whole.
void Client::expect_one_winner(const std::string &first, const std::string &second,
                               const std::vector<std::string> &told) {
    constexpr int rounds = 10;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SetUp();
        auto one = std::async(std::launch::async, [&] { return method("client/add_diskless " + first); });
        auto other = std::async(std::launch::async, [&] { return method("client/add_diskless " + second); });
        const std::array<Ran, 2> ran = {one.get(), other.get()};
        const std::string errors = ran[0].errors + ran[1].errors;
        ASSERT_EQ((ran[0].status == 0) + (ran[1].status == 0), 1) << errors;
        std::vector<testing::Matcher<std::string>> any;
        for (const std::string &words : told)
            any.emplace_back(HasSubstr(words));
        EXPECT_THAT(errors, testing::AnyOfArray(any));
        const std::string winner = ran[0].status == 0 ? first : second;
        const Ran again = method("client/add_diskless " + winner);
        EXPECT_EQ(again.status, 0) << again.errors;
        EXPECT_THAT(again.steps(), Each(testing::EndsWith(": unchanged")))
            << "the winner is whole: " << errors;
        EXPECT_EQ(again.results.at("outputs").at("changed"), "no");
    }
}

TEST_F(Client, HasARootOfItsOwnHoweverManyWantIt) {
    expect_one_winner(c1 + tree + " rootpath=/export/root/same", c2 + tree + " rootpath=/export/root/same",
                      {"and has /export/root/same", "/export/root/same is the root of"});
}

TEST_F(Client, HasAnAddressOfItsOwnHoweverManyWantIt) {
    expect_one_winner(c1 + tree,
                      "hostname=c2 address=10.1.2.3 ethernet=8:0:20:a:b:d" + identity + server + tree,
                      {"and has 10.1.2.3", "10.1.2.3 belongs to"});
}

TEST_F(Client, HasAnEthernetAddressOfItsOwnHoweverManyWantIt) {
    expect_one_winner(c1 + tree,
                      "hostname=c2 address=10.1.2.4 ethernet=08-00-20-0A-0B-0C" + identity + server + tree,
                      {"and has 8:0:20:a:b:c", "08:00:20:0a:0b:0c belongs to"});
}

TEST_F(Client, IsAddedOnceHoweverManyAddIt) {
    expect_one_winner(c1 + tree,
                      "hostname=C1 address=10.1.2.4 ethernet=8:0:20:a:b:d" + identity + server + tree,
                      {"somebody else is working on", "is a client already, written"});
}

TEST_F(Client, LosesNothingWhenAnotherRunWantsWhatItGotMeanwhile) {
    write("/slow-share", "");
    auto adding = std::async(std::launch::async, [] { return method("client/add_diskless " + c1 + tree); });
    EXPECT_TRUE(tests::eventually([] { return fs::exists("/slow-share-began"); }));
    for (const std::string &words :
         {"hostname=c2 address=10.1.2.3 ethernet=8:0:20:a:b:d" + identity + server + tree,
          c2 + tree + " rootpath=/export/root/c1", c2 + tree + " rootpath=/export/root/c1/below",
          c2 + tree + " swappath=/export/swap/c1/swap"}) {
        const Ran refused = method("client/add_diskless " + words);
        EXPECT_EQ(refused.status, 1) << words;
        EXPECT_THAT(refused.errors,
                    HasSubstr("somebody else is working on c1 at the moment (add_diskless, process "));
        EXPECT_THAT(refused.errors, HasSubstr("(error 112)"));
    }
    EXPECT_THAT(method("netboot/cleanup_tftpboot address=10.1.2.3").errors, HasSubstr("and has 10.1.2.3"));
    fs::remove("/slow-share");
    EXPECT_EQ(adding.get().status, 0);
}

// ---- done means done ----

TEST_F(Client, IsNotAddedByAShareCommandThatIsKilledInSilence) {
    standin::place(share_command, {.script = "[ $# = 0 ] && exit 0\nkill -9 $$"});
    expect_undone("/export/root/c1 is not shared: /usr/sbin/share ended without a word and without effect");
}

TEST_F(Client, IsNotRemovedByAnUnshareCommandThatIsKilledInSilence) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    standin::place(unshare_command, {.script = "kill -9 $$"});
    const Ran removed = method("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(removed.status, 1);
    EXPECT_THAT(removed.errors, AllOf(HasSubstr("/export/root/c1 is still shared: /usr/sbin/unshare ended"),
                                      HasSubstr("still there: the share of /export/root/c1")));
}

TEST_F(Client, HasARootThatIsFilledAnewWhenARunWasCutOff) {
    fs::create_directories("/export/root/c1/etc");
    write("/export/root/c1/etc/motd", "");
    expect_refused("holds files already", c1 + tree);
    write("/var/lib/hostadm/filling", "/export/root/c1\tc1\n");
    const Ran added = method("client/add_diskless " + c1 + tree);
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.steps(), Contains("root: done"));
    EXPECT_EQ(content("/export/root/c1/etc/motd"), "welcome\n");
    EXPECT_FALSE(fs::exists("/var/lib/hostadm/filling")) << "it is whole now";
}

TEST_F(Client, ThatIsKnownHasItsRootFilledAnewToo) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    write("/export/root/c1/etc/motd", "");
    write("/var/lib/hostadm/filling", "/export/root/c1\tc1\n");
    const Ran added = method("client/add_diskless " + c1 + tree);
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_EQ(content("/export/root/c1/etc/motd"), "welcome\n");
    EXPECT_EQ(added.results.at("outputs").at("changed"), "yes");
}

TEST_F(Client, WhoseRunWasCutOffIsRemovedWithItsRoot) {
    const std::string before = snapshot();
    write("/export/root/c1/etc/motd", "");
    write("/var/lib/hostadm/filling", "/export/root/c1\tc1\n/export/root/c9\tc9\n");
    const Ran kept = method("client/remove hostname=c1");
    EXPECT_EQ(kept.status, 0) << kept.errors;
    EXPECT_THAT(kept.steps(), Contains("root: kept"));
    const Ran removed = method("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(removed.status, 0) << removed.errors;
    EXPECT_THAT(removed.steps(), Contains("root: done"));
    EXPECT_FALSE(fs::exists("/export/root/c1"));
    EXPECT_EQ(content("/var/lib/hostadm/filling"), "/export/root/c9\tc9\n") << "another's stays";
    fs::remove("/var/lib/hostadm/filling");
}

TEST_F(Client, HasARootThatIsKnownToBeCutOffWhereEverTheRunWasKilled) {
    standin::place("/usr/sbin/pkgadd", {.script = "mkdir -p $4/usr; touch $4/usr/began; sleep 20"});
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    write("/tree/boot/inetboot.kel4m.Quorvel_2.5", "boot program");
    auto adding = std::async(std::launch::async, [] {
        return method("client/add_diskless " + c1 + " packages=/spool install_hierarchy=/tree");
    });
    EXPECT_TRUE(tests::eventually([] { return fs::exists("/export/root/c1/usr/began"); }));
    std::system("pkill -KILL -x add_diskless");
    EXPECT_EQ(adding.get().status, 1);
    EXPECT_EQ(content("/var/lib/hostadm/filling"), "/export/root/c1\tc1\n");
    std::system("pkill -x sleep");
    const Ran again = method("client/add_diskless " + c1 + tree);
    EXPECT_EQ(again.status, 0) << again.errors;
    EXPECT_FALSE(fs::exists("/export/root/c1/usr/began"));
    EXPECT_EQ(content("/export/root/c1/etc/motd"), "welcome\n");
}

TEST_F(Client, GetsAWholeBootProgramWhereAnEarlierRunLeftAnEmptyOne) {
    write("/tftpboot/inetboot.kel4m.Quorvel_2.5", "");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    EXPECT_EQ(content("/tftpboot/0A010203"), "boot program");
    write("/tftpboot/inetboot.kel4m.Quorvel_2.5", "");
    EXPECT_EQ(method("netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.3" + identity).status, 0);
    EXPECT_EQ(content("/tftpboot/0A010203"), "boot program");
}

TEST_F(Client, HasTheUsualModesWhateverTheMaskOfTheCaller) {
    for (const char *mask : {"0", "777", "027"}) {
        SetUp();
        const std::string words =
            "umask " + std::string(mask) + "; " + hostadm() + " run client/add_diskless " + c1 + tree;
        ASSERT_EQ(std::system(("(" + words + ") >/dev/null 2>&1").c_str()), 0) << mask;
        EXPECT_EQ(fs::status("/export/swap/c1/swap").permissions(),
                  fs::perms::owner_read | fs::perms::owner_write)
            << mask;
        EXPECT_EQ(fs::status("/export/root").permissions(), fs::status("/usr").permissions()) << mask;
        EXPECT_EQ(fs::status("/tftpboot/inetboot.kel4m.Quorvel_2.5").permissions(),
                  fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                      fs::perms::others_read)
            << mask;
    }
}

TEST_F(Client, UndoLeavesWhatSomebodyElseHasChangedMeanwhile) {
    write("/slow-share", "");
    auto adding = std::async(std::launch::async, [] { return method("client/add_diskless " + c1 + tree); });
    EXPECT_TRUE(tests::eventually([] { return fs::exists("/slow-share-began"); }));
    fs::rename("/export/swap/c1/swap", "/export/swap/c1/ours");
    write("/export/swap/c1/swap", "somebody else's");
    std::system("pkill -o -x add_diskless");
    EXPECT_EQ(adding.get().status, 1);
    EXPECT_EQ(content("/export/swap/c1/swap"), "somebody else's");
    EXPECT_FALSE(fs::exists("/export/root/c1")) << "this run made it";
}

// ---- answers ----

TEST_F(Client, MethodsThatChangeNothingSaySo) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    for (const char *file : {"inetboot", "gluecode.com", "smc.com"})
        write(std::string("/export/exec/kel4.Quorvel_2.5/platform/kel4m/lib/fs/nfs/") + file, file);
    fs::remove_all("/rplboot");
    fs::create_directories("/export/home");
    for (const std::string &words :
         {"client/add_diskless " + c1 + tree, std::string("filesystem/share pathname=/export/home"),
          std::string("filesystem/unshare pathname=/export/home"),
          std::string("database/set_host address=10.1.2.9 hostname=c9"),
          std::string("database/set_bootparams client=c9 key=root server=s path=/r"),
          std::string("database/remove_bootparams client=c9"),
          "netboot/setup_rplboot client_key=080020010203" + identity,
          std::string("netboot/cleanup_rplboot client_key=080020010203"),
          "netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.7" + identity,
          std::string("netboot/cleanup_tftpboot address=10.1.2.7"),
          std::string("client/remove hostname=c1 purge=yes")}) {
        const Ran first = method(words), second = method(words);
        ASSERT_EQ(first.status, 0) << words << first.errors;
        ASSERT_EQ(second.status, 0) << words << second.errors;
        EXPECT_EQ(first.results.at("outputs").at("changed"), "yes") << words;
        EXPECT_EQ(second.results.at("outputs").at("changed"), "no") << words;
    }
}

TEST_F(Client, ErrorsOfMethodsHaveCodesOfTheirOwn) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const std::pair<std::string, std::string> codes[] = {
        {"client/add_diskless hostname=c2 address=10.1.2.3 ethernet=8:0:20:1:1:1" + identity + server + tree,
         "(error 113)"},
        {"client/add_diskless " + c2 + " tree=/none", "(error 114)"},
        {"client/add_diskless " + c2 + " tree=/tree/etc", "(error 115)"},
        {"client/show hostname=nobody", "(error 114)"},
        {"filesystem/mount resource=h:/d mountpt=/d fstype=nfs takeeffect=bootonly "
         "vfstab=/no/such/place/vfstab",
         "(error 116)"}};
    for (const auto &[words, code] : codes)
        EXPECT_THAT(method(words).errors, HasSubstr(code)) << words;
    fs::remove(share_command);
    EXPECT_THAT(method("filesystem/share pathname=/export").errors, HasSubstr("(error 111)"));
}

TEST_F(Client, IsRefusedWithBadData) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const std::string rest = identity + server + tree;
    expect_refused("must be an IPv4 address", "hostname=c2 address=10.1.2.300 ethernet=8:0:20:1:1:1" + rest);
    expect_refused("must be an IPv4 address", "hostname=c2 address=c2 ethernet=8:0:20:1:1:1" + rest);
    expect_refused("is no address of a host", "hostname=c2 address=224.0.0.1 ethernet=8:0:20:1:1:1" + rest);
    expect_refused("is no address of a host", "hostname=c2 address=0.0.0.0 ethernet=8:0:20:1:1:1" + rest);
    expect_refused("must be an Ethernet address", "hostname=c2 address=10.1.2.4 ethernet=8:0:20:1:1" + rest);
    expect_refused("no Ethernet address of a single host",
                   "hostname=c2 address=10.1.2.4 ethernet=ff:ff:ff:ff:ff:ff" + rest);
    expect_refused("10.1.2.3 belongs to c1", "hostname=c2 address=10.1.2.3 ethernet=8:0:20:1:1:1" + rest);
    expect_refused("c1 has 10.1.2.3", "hostname=c1 address=10.1.2.9 ethernet=8:0:20:a:b:c" + rest);
    expect_refused("belongs to c1", "hostname=c2 address=10.1.2.4 ethernet=8:0:20:a:b:c" + rest);
    expect_refused("is a client already", c1 + tree + " rootpath=/export/root/elsewhere");
    expect_refused("is a client already", c1 + tree + " swappath=/export/swap/elsewhere");
    expect_refused("bytes already", c1 + tree + " swap_size=1k");
    expect_refused("lies in the root of c1", c2 + tree + " rootpath=/export/root/c1/below");
    expect_refused("is the root of c1", c2 + tree + " rootpath=/export/root/c1/");
    expect_refused("/export/root holds the root of", c2 + tree + " rootpath=/export/root");
    expect_refused("lies in the root of c1", c2 + tree + " swappath=/export/root/c1/swap");
    expect_refused("rootpath", c2 + tree + " rootpath=/");
    expect_refused("there is no operating system at /none", c2 + " tree=/none");
    expect_refused("no root file system", c2 + " tree=/tree/etc");
    expect_refused("no boot program for kel4x",
                   "hostname=c2 address=10.1.2.4 ethernet=8:0:20:1:1:1 instruction_set=kel4 "
                   "implementation_arch=kel4x os_name=Quorvel os_version=2.5" +
                       tree);
    expect_refused("not both", c2 + tree + " packages=/spool");
    expect_refused("a 4.x release has no packages",
                   "hostname=c2 address=10.1.2.4 ethernet=8:0:20:1:1:1 instruction_set=kel4 "
                   "implementation_arch=kel4m os_name=Quorvel os_version=4.1.3 packages=/tree" +
                       server);
    expect_refused("lie in one another", c2 + tree + " rootpath=/tree/below");
    expect_refused("holds files already", c2 + tree + " rootpath=/usr/lib");
    expect_refused("/cdrom/cdrom0/s0", c2);
    expect_refused("more than any file can hold", c2 + tree + " swap_size=99999999999g");
}

TEST_F(Client, SharesNoFileWithAnother) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree + " dumppath=/export/dump/c1/dump").status, 0);
    expect_refused("/export/swap/c1/swap is the swap of c1", c2 + tree + " swappath=/export/swap/c1/swap");
    expect_refused("/export/dump/c1/dump is the dump of c1", c2 + tree + " dumppath=/export/dump/c1/dump");
    expect_refused("/export/swap/c1/swap is the swap of c1", c2 + tree + " dumppath=/export/swap/c1/swap");
    expect_refused("/export/dump/c1 holds the dump of c1", c2 + tree + " rootpath=/export/dump/c1");
}

TEST_F(Client, IsKeptOutOfAnothersRootHoweverThatIsSpelled) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    fs::create_directory_symlink("/export", "/other-name");
    for (const char *path :
         {"/export//root/c1/below", "/export/./root/c1/below", "/other-name/root/c1/below"})
        expect_refused("/export/root/c1/below lies in the root of c1", c2 + tree + " rootpath=" + path);
    fs::remove("/other-name");
    fs::create_directory_symlink("/tree", "/other-tree");
    expect_refused("lie in one another", c2 + " tree=/other-tree rootpath=/tree/below");
    fs::remove("/other-tree");
}

TEST_F(Client, HasARootASwapAndADumpThatAreNotInEachOthersWay) {
    expect_refused("cannot lie at /export/root/c1,", c1 + tree + " swappath=/export/root/c1");
    expect_refused("cannot lie at /export/new,", c1 + tree + " rootpath=/export/new/c1 swappath=/export/new");
    expect_refused("cannot lie at /export/new,", c1 + tree + " rootpath=/export/new/c1 dumppath=/export/new");
    fs::create_directories("/export/folder");
    expect_refused("/export/folder is no plain file", c1 + tree + " swappath=/export/folder");
    expect_refused("/export/folder is no plain file", c1 + tree + " dumppath=/export/folder");
    expect_refused("a swap file of 0 bytes is of no use", c1 + tree + " swap_size=0");
    expect_refused("the server nobody.lab has no address here",
                   "hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c server=nobody.lab" + identity + tree);
    expect_refused("give tree, packages or install_hierarchy", c1);
    expect_undone("/export/root/c1/etc is no plain file", c1 + tree + " swappath=/export/root/c1/etc");
    expect_undone("/export/root/c1/etc is no plain file", c1 + tree + " dumppath=/export/root/c1/etc");
}

TEST_F(Client, DoesNotChangeItsSystemByASecondRun) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    write("/tree/usr/lib/fs/nfs/inetboot", "for all architectures");
    const std::string self =
        "hostname=c1 address=10.1.2.3 ethernet=8:0:20:A:b:C instruction_set=kel4" + server;
    expect_refused("boots inetboot.kel4m.Quorvel_2.5, not inetboot.kel4m.Quorvel_2.6",
                   self + tree + " implementation_arch=kel4m os_name=Quorvel os_version=2.6");
    expect_refused("boots inetboot.kel4m.Quorvel_2.5, not inetboot.kel4c.Quorvel_2.5",
                   self + tree + " implementation_arch=kel4c os_name=Quorvel os_version=2.5");
    fs::remove("/tftpboot/0A010203");
    const Ran mended = method("client/add_diskless " + c1 + tree);
    EXPECT_EQ(mended.status, 0) << mended.errors;
    EXPECT_THAT(mended.steps(), Contains("boot links: done"));
}

TEST_F(Client, IsTheSameInUpperCase) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    expect_refused("C1 is a client already, written c1",
                   "hostname=C1 address=10.1.2.3 ethernet=8:0:20:A:b:C" + identity + server + tree);
    EXPECT_EQ(method("client/show hostname=C1").results.at("outputs").at("name"), "c1");
    const Ran removed = method("client/remove hostname=C1 purge=yes");
    EXPECT_EQ(removed.status, 0) << removed.errors;
    EXPECT_THAT(snapshot(), Not(HasSubstr("c1")));
}

TEST_F(Client, HasItsRootWhereItCanBeRemovedAgain) {
    expect_refused("too near to the root of this server", c1 + tree + " rootpath=/c1");
    fs::create_directories("/export/real");
    fs::create_directory_symlink("/export/real", "/export/link");
    expect_refused("/export/link is a symbolic link", c1 + tree + " rootpath=/export/link");
}

TEST_F(Client, IsAddedAndRemovedWhereExportIsALink) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    fs::create_directories("/data/export");
    fs::create_directory_symlink("/data/export", "/export");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    EXPECT_THAT(content("/etc/bootparams"),
                HasSubstr("c1 root=server1:/data/export/root/c1 swap=server1:/data/export/swap/c1/swap "
                          "boottype=:di swapsize=:32\n"));
    EXPECT_THAT(content("/etc/dfs/dfstab"), HasSubstr(" /data/export/root/c1\n"));
    const Ran again = method("client/add_diskless " + c1 + tree);
    EXPECT_EQ(again.status, 0) << again.errors;
    EXPECT_THAT(again.steps(), Each(testing::EndsWith(": unchanged")));
    EXPECT_EQ(method("client/list").results.at("rows")[0].at("shared"), "yes");
    const Ran removed = method("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(removed.status, 0) << removed.errors;
    EXPECT_FALSE(fs::exists("/data/export/root/c1"));
    EXPECT_EQ(content("/etc/dfs/dfstab"), "# shares\n");
    fs::remove_all("/data");
}

TEST_F(Client, IsNotAddedWhereNothingCanBeShared) {
    fs::remove(share_command);
    expect_refused("/usr/sbin/share", c1 + tree);
}

TEST_F(Client, IsToldWhichDaemonsAreMissing) {
    const Ran added = method("client/add_diskless " + c1 + tree);
    EXPECT_THAT(added.warnings(), Contains(HasSubstr("in.tftpd does not run; start it: ")));
    EXPECT_THAT(added.warnings(), Contains(HasSubstr("rpcbind does not run; start it: ")));
    EXPECT_THAT(added.warnings(), Not(Contains(testing::StartsWith("reverse ARP"))));
    EXPECT_THAT(added.warnings(),
                Contains(HasSubstr("no interface of this server is in the network of 10.1.2.3")));
}

TEST_F(Client, IsToldWhenItsServersNameLeadsNowhere) {
    write("/etc/hosts", "127.0.1.1\tserver1\n");
    EXPECT_THAT(method("client/add_diskless " + c1 + tree).warnings(),
                Contains(HasSubstr("server1 has the address 127.")));
}

TEST_F(Client, IsToldWhenItsServersNameLeadsElsewhere) {
    EXPECT_THAT(method("client/add_diskless " + c1 + tree).warnings(),
                Contains(HasSubstr("server1 has the address 10.1.2.1 here, which is none of this server's")));
}

TEST_F(Client, RemovalSaysWhatAnotherServerHolds) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const Ran removed = method("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(removed.status, 0) << removed.errors;
    EXPECT_THAT(removed.steps(), AllOf(Contains("root: kept"), Contains("swap: kept")));
    EXPECT_TRUE(fs::exists("/export/root/c1/etc/motd")) << "server1 is not this host";
}

TEST_F(Client, IsRemovedWithEverythingButItsRoot) {
    const std::string before = snapshot();
    ASSERT_EQ(method("client/add_diskless " + c1 + tree + " server=localhost").status, 2) << "given twice";
    write("/etc/hosts", "# hosts\n127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const Ran removed = method("client/remove hostname=c1");
    EXPECT_EQ(removed.status, 0) << removed.errors;
    EXPECT_EQ(content("/etc/hosts"), "# hosts\n127.0.0.1\tlocalhost server1\n");
    EXPECT_EQ(content("/etc/ethers"), "# ethers\n");
    EXPECT_EQ(content("/etc/bootparams"), "other root=elsewhere:/export/root/other\n");
    EXPECT_EQ(content("/etc/dfs/dfstab"), "# shares\n");
    EXPECT_EQ(content("/etc/dfs/sharetab"), "");
    EXPECT_TRUE(fs::exists("/export/root/c1/etc/motd")) << "without purge=yes";
    EXPECT_FALSE(fs::exists("/export/swap/c1"));
    EXPECT_FALSE(fs::exists(fs::symlink_status("/tftpboot/0A010203")));
    EXPECT_TRUE(fs::exists("/tftpboot/inetboot.kel4m.Quorvel_2.5"));
    EXPECT_THAT(removed.steps(), Contains("root: kept"));

    const std::string after = snapshot(true);
    const Ran again = method("client/remove hostname=c1");
    EXPECT_EQ(again.status, 0);
    EXPECT_THAT(again.steps(), ElementsAre("client: unchanged"));
    EXPECT_EQ(snapshot(true), after);
}

TEST_F(Client, IsRemovedWithItsRootWhenAskedTo) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    ASSERT_EQ(method("client/add_diskless " + c2 + tree).status, 0);
    EXPECT_EQ(method("client/remove hostname=c1 purge=yes").status, 0);
    EXPECT_FALSE(fs::exists("/export/root/c1"));
    EXPECT_TRUE(fs::exists("/export/root/c2/etc/motd"));
    EXPECT_EQ(content("/tftpboot/0A010204"), "boot program");
    EXPECT_EQ(method("client/remove hostname=c1 purge=yes").status, 0) << "safe to run twice";
}

TEST_F(Client, KeepsItsRootWhenAnothersLiesInIt) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    write("/etc/bootparams", content("/etc/bootparams") + "c9 root=server1:/export/root/c1/c9\n");
    const std::string before = snapshot(true);
    const Ran removed = method("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(removed.status, 1);
    EXPECT_THAT(removed.errors, HasSubstr("/export/root/c1/c9"));
    EXPECT_EQ(snapshot(true), before);
}

TEST_F(Client, KeepsItsRootWhenSomethingIsMountedThere) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    {
        const SmallDisk disk("/export/root/c1/mnt", "64k");
        write("/export/root/c1/mnt/precious", "x");
        const Ran removed = method("client/remove hostname=c1 purge=yes");
        EXPECT_EQ(removed.status, 1);
        EXPECT_THAT(removed.errors, AllOf(HasSubstr("something is mounted at /export/root/c1/mnt"),
                                          HasSubstr("left half done: still there: /export/root/c1")));
        EXPECT_TRUE(fs::exists("/export/root/c1/mnt/precious"));
        EXPECT_TRUE(fs::exists("/export/root/c1/etc/motd"));
    }
    const Ran again = method("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(again.status, 0) << again.errors;
    EXPECT_FALSE(fs::exists("/export/root/c1"));
}

TEST_F(Client, RemovalThatFailsSaysWhatIsLeftAndIsFinishedByAnother) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    write("/complain-unshare", "");
    const Ran removed = method("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(removed.status, 1);
    EXPECT_THAT(removed.errors, AllOf(HasSubstr("still there: the share of /export/root/c1"),
                                      HasSubstr("still there: /export/swap/c1/swap"),
                                      HasSubstr("still there: the entry of c1 in /etc/bootparams")));
    EXPECT_FALSE(fs::exists(fs::symlink_status("/tftpboot/0A010203"))) << "it cannot boot any more";
    fs::remove("/complain-unshare");
    EXPECT_EQ(method("client/remove hostname=c1 purge=yes").status, 0);
    EXPECT_THAT(snapshot(), Not(HasSubstr("c1")));
}

TEST_F(Client, RemovalKeepsAShareThatOthersUseToo) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    write("/etc/dfs/sharetab", "-  /export/root/c1  rw=c1:c2,root=c1  \"\"\n");
    const Ran removed = method("client/remove hostname=c1");
    EXPECT_EQ(removed.status, 0) << removed.errors;
    EXPECT_THAT(removed.steps(), Contains("share: kept"));
    EXPECT_THAT(content("/etc/dfs/sharetab"), HasSubstr("rw=c1:c2"));
}

TEST_F(Client, RemovalTouchesNobodyElse) {
    const std::string before = snapshot(true);
    for (const char *name : {"server1", "localhost", "other2"})
        method(std::string("client/remove purge=yes hostname=") + name);
    EXPECT_EQ(snapshot(true), before);
}

TEST_F(Client, IsListedAndShown) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    ASSERT_EQ(method("client/add_diskless " + c2 + tree).status, 0);
    fs::remove("/tftpboot/0A010204");
    write("/etc/dfs/sharetab", "-  /export/root/c1  rw=c1,root=c1  \"\"\n");

    const auto rows = method("client/list").results.at("rows");
    ASSERT_EQ(rows.size(), 2u) << "a root on another server makes no client of this one";
    EXPECT_EQ(rows[0], nlohmann::json({{"name", "c1"},
                                       {"kind", "diskless"},
                                       {"address", "10.1.2.3"},
                                       {"ethernet", "08:00:20:0a:0b:0c"},
                                       {"architecture", "kel4m"},
                                       {"root", "/export/root/c1"},
                                       {"boot_links", "yes"},
                                       {"shared", "yes"},
                                       {"disabled", "no"}}));
    EXPECT_EQ(rows[1].at("boot_links"), "no 0A010204");
    EXPECT_EQ(rows[1].at("shared"), "no");
    EXPECT_EQ(method("client/list_names").results.at("rows"),
              nlohmann::json({{{"name", "c1"}}, {{"name", "c2"}}}));

    const auto shown = method("client/show hostname=c1").results.at("outputs");
    EXPECT_EQ(shown.at("root"), "server1:/export/root/c1");
    EXPECT_EQ(shown.at("swap_size"), "33554432");
    EXPECT_EQ(shown.at("swapsize"), "32");
    EXPECT_EQ(shown.at("boottype"), "di");
    EXPECT_EQ(shown.at("kind"), "diskless");
    EXPECT_EQ(shown.at("share_at_boot"), "rw=c1,root=c1");
    EXPECT_EQ(method("client/show hostname=nobody").status, 1);
}

TEST_F(Client, IsNotListedFromASourceThatNobodyKnows) {
    const std::string before = content("/etc/nsswitch.conf");
    write("/etc/nsswitch.conf", before + "bootparams: files dns\n");
    for (const char *words : {"run client/list", "run client/list_names", "status"}) {
        const Ran failed = run(words);
        EXPECT_EQ(failed.status, 1);
        EXPECT_THAT(failed.errors, HasSubstr("/etc/nsswitch.conf names the source \"dns\" for bootparams"));
    }
    write("/etc/nsswitch.conf", before);
}

TEST_F(Client, IsNotSaidToBeMissingWhereNothingNamesTheSources) {
    const std::string before = content("/etc/nsswitch.conf");
    fs::remove("/etc/nsswitch.conf");
    for (const char *words : {"run --json client/list", "status --json"}) {
        const Ran failed = run(words);
        EXPECT_EQ(failed.status, 1);
        EXPECT_THAT(failed.errors,
                    HasSubstr("/etc/nsswitch.conf cannot be read: No such file or directory; it names"));
    }
    write("/etc/nsswitch.conf", before);
}

TEST_F(Client, IsNotSaidToBeMissingWhereBootparamsCannotBeRead) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    fs::permissions("/etc/bootparams", fs::perms::owner_read);
    for (const char *words :
         {"run client/list", "run client/list_names", "run client/show hostname=c1", "status"})
        EXPECT_EQ(std::system(("setpriv --reuid 65534 --clear-groups " + hostadm() + " " + words +
                               " 2>&1 | grep -q '/etc/bootparams cannot be read: Permission denied'")
                                  .c_str()),
                  0)
            << words;
}

TEST_F(Client, IsInTheStatusOfTheServer) {
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
    write("/etc/vfstab", "#device\tfsck\tpoint\ttype\tpass\tboot\toptions\n/proc - /proc proc - no -\n"
                         "h:/usr - /mnt/usr nfs - yes ro\n");
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const Ran status = run("status --json");
    ASSERT_EQ(status.status, 0) << status.errors;
    EXPECT_EQ(status.results.at("clients")[0].at("architecture"), "kel4m");
    EXPECT_EQ(status.results.at("clients")[0].at("shared"), "yes");
    EXPECT_EQ(status.results.at("shares").size(), 2u);
    ASSERT_EQ(status.results.at("mounts").size(), 2u);
    EXPECT_EQ(status.results.at("mounts")[0].at("now"), "yes");
    EXPECT_EQ(status.results.at("mounts")[1].at("now"), "no");
    EXPECT_EQ(status.results.at("mounts")[1].at("at_boot"), "yes");
    std::map<std::string, std::string> running;
    for (const auto &daemon : status.results.at("daemons"))
        running[daemon.at("service")] = daemon.at("running");
    EXPECT_EQ(running.at("NFS"), "yes");
    EXPECT_EQ(running.at("reverse ARP"), "yes");
    EXPECT_EQ(running.at("TFTP"), "no");
    const std::string text = hostadm() + " status";
    EXPECT_EQ(
        std::system(
            (text +
             " | grep -qx 'c1    diskless  10.1.2.3  kel4m         /export/root/c1  yes         yes     no'")
                .c_str()),
        0);
}

TEST_F(Client, StatusTellsHowManyFindingsThereAre) {
    ASSERT_EQ(method("client/add_diskless " + c1 + tree).status, 0);
    const Ran check = run("check --json"), status = run("status --json");
    EXPECT_EQ(check.status, 1) << "no TFTP daemon runs here";
    const auto count = check.results.at("findings").size();
    EXPECT_GT(count, 0u);
    EXPECT_EQ(status.results.at("findings"), count);
    EXPECT_EQ(status.status, 0);
    EXPECT_EQ(std::system((hostadm() + " status | grep -q '^" + std::to_string(count) +
                           " findings\\?; `hostadm check` tells'")
                              .c_str()),
              0);
}

TEST_F(Client, StatusOfAServerWithoutClientsIsEmptyNotAnError) {
    for (const char *path : {"/etc/bootparams", "/etc/ethers", "/etc/dfs", "/etc/vfstab"})
        fs::remove_all(path);
    const Ran status = run("status --json");
    EXPECT_EQ(status.status, 0) << status.errors;
    EXPECT_TRUE(status.results.at("clients").empty());
    EXPECT_EQ(status.results.at("daemons").size(), 6u);
}

TEST_F(Client, BootAreasHaveMethodsOfTheirOwn) {
    const std::string names = " address=10.1.2.3" + identity;
    const Ran set_up = method("netboot/setup_tftpboot install_hierarchy=/tree" + names);
    EXPECT_EQ(set_up.status, 0) << set_up.errors;
    EXPECT_EQ(set_up.results.at("outputs").at("boot_program"), "inetboot.kel4m.Quorvel_2.5");
    EXPECT_EQ(content("/tftpboot/0A010203.KEL4M"), "boot program");
    EXPECT_EQ(method("netboot/cleanup_tftpboot address=10.1.2.3").status, 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status("/tftpboot/0A010203")));
    const Ran again = method("netboot/cleanup_tftpboot address=10.1.2.3");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.errors, "");
    EXPECT_EQ(method("netboot/setup_tftpboot install_hierarchy=/none os_version=2.6 address=10.1.2.3 "
                     "instruction_set=a "
                     "implementation_arch=b os_name=c")
                  .status,
              1);

    fs::remove_all("/rplboot");
    const std::string part = "/export/exec/kel4.Quorvel_2.5/lib/fs/nfs/";
    write(part + "inetboot", "rpl");
    write(part + "drv.i86pc/gluecode.com", "glue");
    const std::string rpl = "netboot/setup_rplboot client_key=080020010203" + identity;
    const Ran without_module = method(rpl);
    EXPECT_THAT(without_module.errors,
                AllOf(HasSubstr("there is no smc.com to make /rplboot/smc.com of; looked for "
                                "/export/exec/kel4.Quorvel_2.5/platform/kel4m/lib/fs/nfs/smc.com, "
                                "/export/exec/kel4.Quorvel_2.5/lib/fs/nfs/drv.i86pc/smc.com"),
                      HasSubstr("(error 67)"), Not(HasSubstr("no gluecode.com"))));
    EXPECT_EQ(without_module.results.at("outputs").size(), 0u) << "nothing was made for the client";
    write(part + "drv.i86pc/smc.com", "smc");
    EXPECT_EQ(method(rpl).status, 0);
    EXPECT_EQ(content("/rplboot/080020010203.hw.com"), "smc");
    EXPECT_EQ(content("/rplboot/080020010203.glue.com"), "glue");
    EXPECT_EQ(content("/rplboot/080020010203.inetboot"), "rpl");
    EXPECT_EQ(method("netboot/cleanup_rplboot client_key=080020010203").status, 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status("/rplboot/080020010203.hw.com")));
    EXPECT_EQ(method("netboot/cleanup_rplboot client_key=080020010203").status, 0);
}

TEST_F(Client, SetUpOfABootAreaIsQuietWhenItSucceeds) {
    EXPECT_EQ(method("netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.3" + identity).errors,
              "");
}

TEST_F(Client, ArchitectureCountsInAnyCase) {
    const std::string upper =
        " instruction_set=KEL4 implementation_arch=KEL4M os_name=Quorvel os_version=2.5 ";
    const Ran set_up = method("netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.3" + upper);
    EXPECT_EQ(set_up.status, 0) << set_up.errors;
    EXPECT_EQ(fs::read_symlink("/tftpboot/0A010203.KEL4M"), "inetboot.kel4m.Quorvel_2.5");
    fs::remove_all("/rplboot");
    for (const char *file : {"inetboot", "gluecode.com", "smc.com"})
        write(std::string("/export/exec/kel4.Quorvel_2.5/platform/kel4m/lib/fs/nfs/") + file, file);
    EXPECT_EQ(method("netboot/setup_rplboot client_key=080020010203" + upper).status, 0);
    EXPECT_EQ(fs::read_symlink("/rplboot/080020010203.inetboot"), "inetboot.kel4m.Quorvel_2.5");
}

TEST_F(Client, LinksOfABootAreaThatCannotBeMadeAreTold) {
    fs::create_directories("/tftpboot/0A010203");
    const Ran failed = method("netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.3" + identity);
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.errors, AllOf(HasSubstr("/tftpboot/0A010203 is no link; remove it first"),
                                     Not(HasSubstr("left half done"))));
    EXPECT_FALSE(fs::exists(fs::symlink_status("/tftpboot/0A010203.KEL4M")));
}

TEST_F(Client, ArgumentsOfNoUseOnAnyServerAreInvalidOnes) {
    const std::string others = "hostname=c2 ethernet=8:0:20:1:1:1 address=10.1.2.4" + identity;
    for (const std::string &arguments :
         {"hostname=c2 ethernet=8:0:20:1:1:1 address=127.0.0.1" + identity + tree,
          "hostname=c2 ethernet=ff:ff:ff:ff:ff:ff address=10.1.2.4" + identity + tree,
          others + tree + " packages=/spool", others + tree + " swap_size=0",
          others + tree + " swap_size=99999999999g", others + tree + " rootpath=/",
          others + tree + " swappath=//", others + tree + " dumppath=/"}) {
        const Ran refused = method("client/add_diskless " + arguments);
        EXPECT_EQ(refused.status, 2) << arguments;
        EXPECT_EQ(refused.results.at("status"), "invalid") << refused.errors;
    }
    EXPECT_THAT(method("client/add_diskless " + others + tree + " dumppath=/").errors,
                HasSubstr("the argument dumppath cannot be \"/\""));
}

TEST_F(Client, LinksThatStillLeadToAnotherProgramAreNotTakenForMade) {
    ASSERT_EQ(method("netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.3" + identity).status, 0);
    write("/tftpboot/inetboot.kel4m.Quorvel_2.6", "another boot program");
    EXPECT_EQ(std::system(("setpriv --reuid 65534 --clear-groups " + hostadm() +
                           " run netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.3"
                           " instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.6"
                           " 2>&1 | grep -q 'cannot make the links of 10.1.2.3 in /tftpboot to "
                           "inetboot.kel4m.Quorvel_2.6; is it read-only'")
                              .c_str()),
              0);
    EXPECT_EQ(fs::read_symlink("/tftpboot/0A010203"), "inetboot.kel4m.Quorvel_2.5");
}

TEST_F(Client, HalfABootProgramIsNotKept) {
    const std::string name = "/tftpboot/inetboot.kel4m.Quorvel_2.5";
    const std::string set_up = "netboot/setup_tftpboot install_hierarchy=/tree address=10.1.2.3" + identity;
    write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", std::string(100'000, 'x'));
    {
        const SmallDisk disk("/tftpboot", "16k");
        const Ran failed = method(set_up);
        EXPECT_EQ(failed.status, 1);
        EXPECT_THAT(failed.errors, HasSubstr("(error 67)"));
        EXPECT_FALSE(fs::exists(name)) << "it would never be refreshed";
        EXPECT_EQ(method(set_up).status, 1) << "nor is it taken for whole by the next run";
        fs::create_symlink("/not/mounted/now", name);
        EXPECT_EQ(method(set_up).status, 1);
        EXPECT_TRUE(fs::is_symlink(name)) << "what the copy did not make is no part of it";
    }
    EXPECT_EQ(method(set_up).status, 0);
    EXPECT_EQ(fs::file_size(name), 100'000u);
}

TEST_F(Client, HalfAnRplBootProgramIsNotKeptAndIsTold) {
    fs::remove_all("/rplboot");
    const std::string part = "/export/exec/kel4.Quorvel_2.5/lib/fs/nfs/";
    write(part + "inetboot", std::string(100'000, 'x'));
    write(part + "drv.i86pc/gluecode.com", "glue");
    write(part + "drv.i86pc/smc.com", "smc");
    const std::string set_up = "netboot/setup_rplboot client_key=080020010203" + identity;
    {
        const SmallDisk disk("/rplboot", "16k");
        const Ran failed = method(set_up);
        EXPECT_EQ(failed.status, 1);
        EXPECT_THAT(failed.errors, AllOf(HasSubstr("/rplboot/080020010203.inetboot leads to no file"),
                                         HasSubstr("left half done: the links of 080020010203")));
        EXPECT_FALSE(fs::exists("/rplboot/inetboot.kel4m.Quorvel_2.5"));
        EXPECT_EQ(content("/rplboot/080020010203.glue.com"), "glue");
    }
    EXPECT_EQ(method(set_up).status, 0);
    EXPECT_EQ(fs::file_size("/rplboot/080020010203.inetboot"), 100'000u);
}

TEST_F(Client, RplbootIsCleanedOfOneClientOnly) {
    fs::remove_all("/rplboot");
    for (const char *name : {"smc.com", "gluecode.com", "inetboot.i86pc.Quorvel_2.5"})
        write(std::string("/rplboot/") + name, "shared");
    for (const char *key : {"0800", "08002"})
        for (const char *suffix : {".hw.com", ".glue.com", ".inetboot"})
            fs::create_symlink("smc.com", std::string("/rplboot/") + key + suffix);
    for (const char *key : {"0800", "0", "smc", "g", "inetboot", "inetboot.i86pc"}) {
        const Ran refused = method(std::string("netboot/cleanup_rplboot client_key=") + key);
        EXPECT_EQ(refused.status, 2) << key;
        EXPECT_THAT(refused.errors, HasSubstr("would also remove /rplboot/")) << key;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator("/rplboot"), fs::directory_iterator()), 9);
    EXPECT_EQ(method("netboot/cleanup_rplboot client_key=08002").status, 0);
    EXPECT_EQ(method("netboot/cleanup_rplboot client_key=0800").status, 0);
    EXPECT_EQ(std::distance(fs::directory_iterator("/rplboot"), fs::directory_iterator()), 3);
}

TEST_F(Client, RplbootKeyIsOfTwelveHexadecimalDigits) {
    for (const char *key : {"zz", "..", "smc", "8:0:20:1:2:3", "08002001020", "0800200102030"}) {
        const Ran refused = method(std::string("netboot/setup_rplboot client_key=") + key + identity);
        EXPECT_EQ(refused.status, 2) << key;
        EXPECT_THAT(refused.errors, HasSubstr("client_key")) << key;
    }
    EXPECT_EQ(method("netboot/cleanup_rplboot client_key=..").status, 2);
    const Ran none = method("netboot/cleanup_rplboot client_key=080020aabbcc");
    EXPECT_EQ(none.results["outputs"]["removed"], "0");
}

TEST_F(Client, NamesThatAnAddressLosesAreTold) {
    write("/etc/hosts", "127.0.0.1 localhost\n10.1.2.9\tc9.lab c9 old # of the lab\n");
    EXPECT_EQ(method("database/set_host address=10.1.2.9 hostname=c9").results["outputs"]["replaced"],
              "c9.lab c9 old");
    EXPECT_EQ(method("database/set_host address=10.1.2.9 hostname=c9").results["outputs"],
              nlohmann::json({{"changed", "no"}}))
        << "nothing is lost";
    const Ran refused = method("database/set_host address=127.0.0.1 hostname=c9");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, HasSubstr("would lose the name localhost"));
    EXPECT_THAT(content("/etc/hosts"), HasSubstr("127.0.0.1 localhost\n"));
}

TEST_F(Client, NameMayBeSetAlone) {
    EXPECT_EQ(method("database/set_host address=10.1.2.9 hostname=c9").status, 0);
    EXPECT_THAT(content("/etc/hosts"), testing::EndsWith("10.1.2.9\tc9\n"));
    const Pinned pinned("/etc/hosts");
    const Ran failed = method("database/set_host address=10.1.2.9 hostname=c10");
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.errors, HasSubstr("/etc/hosts is a mount point and cannot be replaced"));
}

TEST_F(Client, RootIsNeverTheServersOwn) {
    standin::place("/usr/sbin/pkgadd");
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    fs::create_directories("/export/root/c7");
    fs::create_directory_symlink("/", "/export/root/top");
    fs::create_directory_symlink("/var", "/export/root/c7/var");
    struct stat before {
    }, after{};
    ASSERT_EQ(stat("/var", &before), 0);
    const auto create = [](const std::string &root) {
        return method("service/create_root os_name=Quorvel os_version=2.5 sources=/spool rootpath=" + root);
    };
    EXPECT_THAT(create("/").errors, HasSubstr("/ is this server's own root"));
    EXPECT_THAT(create("//").errors, HasSubstr("/ is this server's own root"));
    EXPECT_THAT(create("/export/root/top").errors, HasSubstr("is this server's own root"));
    EXPECT_THAT(create("/export/root/c7").errors, HasSubstr("leads out of the client's root, to /var/sadm"));
    EXPECT_THAT(create("/export/root/none").errors, HasSubstr("/export/root/none is no directory"));
    EXPECT_THAT(standin::lines(), testing::IsEmpty());
    ASSERT_EQ(stat("/var", &after), 0);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec) << "it did not change hands";
    EXPECT_THAT(method("service/apply_patches root=/").errors, HasSubstr("is this server's own root"));
}

TEST_F(Client, RootIsNotFilledFromItself) {
    write("/export/all/tree/etc/motd", "kept\n");
    fs::create_directory_symlink("/export/all/tree", "/export/link");
    for (const char *root : {"/export/all/tree", "/export/link", "/export/all/tree/etc", "/export/all"}) {
        const Ran refused =
            method("service/create_root os_name=Quorvel os_version=4.1 sources=/export/all/tree "
                   "rootpath=" +
                   std::string(root));
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.errors, HasSubstr("lie in one another")) << root;
        EXPECT_EQ(content("/export/all/tree/etc/motd"), "kept\n") << root;
    }
}

TEST_F(Client, RootIsNoFolderOfTheServer) {
    write("/export/tree/hosts", "not the server's\n");
    const std::string before = content("/etc/hosts");
    EXPECT_THAT(
        method("service/create_root os_name=Q os_version=4.1 sources=/export/tree rootpath=/etc").errors,
        HasSubstr("/etc is too near to the root of this server"));
    EXPECT_EQ(content("/etc/hosts"), before);
    EXPECT_THAT(method("service/apply_patches root=/etc").errors, HasSubstr("too near to the root"));
}

TEST_F(Client, RootThatIsFilledInPartIsTold) {
    standin::place("/usr/sbin/pkgadd", {.script = "echo \"$0 $*\" >$4/called"}); // it may write nowhere else
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    fs::create_directories("/export/root/c7");
    const std::string create =
        "service/create_root rootpath=/export/root/c7/ os_name=Quorvel os_version=2.5 sources=/spool";
    const Ran failed = method(create);
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.errors,
                AllOf(HasSubstr(".clustertoc"), HasSubstr("left half done: /export/root/c7 may")));
    EXPECT_THAT(content("/export/root/c7/called"),
                testing::StartsWith("/usr/sbin/pkgadd -S -n -R /export/root/c7 -a"));
    standin::answer("/usr/sbin/pkgadd", {.status = 1});
    fs::remove_all("/export/root/c7");
    fs::create_directories("/export/root/c7");
    const Ran untouched = method(create);
    EXPECT_EQ(untouched.status, 1);
    EXPECT_THAT(untouched.errors, Not(HasSubstr("left half done"))) << "nothing had been installed";
    write("/export/root/c7/etc/motd", "from before");
    fs::remove("/usr/sbin/pkgadd");
    const Ran unable = method(create);
    EXPECT_THAT(unable.errors, AllOf(HasSubstr("/usr/sbin/pkgadd, which"), Not(HasSubstr("left half done"))));
}

TEST_F(Client, RootWhoseFillingIsInterruptedIsToldAndLeavesNoSettings) {
    standin::place("/usr/sbin/pkgadd", {.script = "touch $4/began; sleep 20"});
    write("/spool/KTVXboot/pkginfo", "PKG=KTVXboot\n");
    fs::create_directories("/export/root/c7");
    const std::size_t before = admin_files();
    auto creating = std::async(std::launch::async, [] {
        return method(
            "service/create_root rootpath=/export/root/c7 os_name=Quorvel os_version=2.5 sources=/spool");
    });
    EXPECT_TRUE(tests::eventually([] { return fs::exists("/export/root/c7/began"); }));
    std::system("pkill -o -x -INT create_root");
    const Ran interrupted = creating.get();
    EXPECT_EQ(interrupted.status, 1);
    EXPECT_THAT(interrupted.errors, AllOf(HasSubstr("interrupted (SIGINT)"),
                                          HasSubstr("left half done: /export/root/c7 may hold part")));
    EXPECT_EQ(admin_files(), before);
}

TEST_F(Client, RootMayBeFilledAlone) {
    if (!fs::exists("/usr/bin/cpio"))
        GTEST_SKIP() << "cpio is not installed";
    fs::create_directories("/export/root/c7");
    write("/second/etc/more", "more");
    const std::string words =
        "service/create_root rootpath=/export/root/c7 os_name=Quorvel os_version=4.1.3 sources=";
    const Ran made = method(words + "/tree,/second");
    EXPECT_EQ(made.status, 0) << made.errors;
    EXPECT_EQ(made.results["outputs"]["changed"], "yes");
    EXPECT_EQ(content("/export/root/c7/etc/motd"), "welcome\n");
    EXPECT_EQ(content("/export/root/c7/etc/more"), "more");
    EXPECT_EQ(method(words + "/tree,/second").results["outputs"]["changed"], "no");
    EXPECT_THAT(method(words + "/none").errors, HasSubstr("there is no directory /none"));
}
