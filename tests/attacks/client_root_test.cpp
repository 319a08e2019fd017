// SPDX-License-Identifier: MIT
// A client is root in its own root and may change anything in there between two system calls of a method. None of
// what it lays there may let the method read, write, make or remove anything of the server's.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"
#include "worst_moment.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::write;

// Another build of the command may be attacked, to see that these attacks are real ones.
std::string attacked_command() {
    const char *other = std::getenv("HOSTADM_ATTACKED");
    return other == nullptr ? HOSTADM_COMMAND : other;
}

const std::string root = "/export/root/c1", own = "/own", data = "/opt/KTVXmgrd/2.2";
const std::string secret = "srv:/secret - / nfs - no secret\n";
const std::string table = "srv:/r - / nfs - no rw\nsrv:/u - /usr nfs - no ro\n";

// Everything about a tree that an attack could change.
std::string state_of(const std::string &tree) {
    std::vector<std::string> lines;
    for (auto entry = fs::recursive_directory_iterator(tree); entry != fs::recursive_directory_iterator();
         ++entry) {
        struct stat status {};
        lstat(entry->path().c_str(), &status);
        std::ostringstream line;
        line << entry->path().native() << ' ' << std::oct << status.st_mode << ' ' << status.st_uid << ':'
             << status.st_gid << ' ' << status.st_rdev << ' '
             << (S_ISREG(status.st_mode) ? content(entry->path()) : "");
        lines.push_back(line.str());
    }
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (const std::string &line : lines)
        all += line + "\n";
    return all;
}

bool holds_secret(const std::string &tree) {
    if (!fs::exists(tree))
        return false;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(tree))
        if (fs::is_regular_file(entry.symlink_status()) && entry.file_size() < 100000 &&
            content(entry.path()).find("secret") != std::string::npos)
            return true;
    return false;
}

// Put aside what stands there, and lay something else.
void lay_link(const std::string &path, const std::string &target) {
    std::error_code ignored;
    fs::rename(path, path + ".aside", ignored);
    fs::create_directories(fs::path(path).parent_path(), ignored);
    fs::create_symlink(target, path, ignored);
}

std::vector<std::string> words_of(const std::string &text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

class ClientRoot : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("HOSTADM_SANDBOX") == nullptr)
            GTEST_SKIP() << "runs in a throwaway root only";
        standin::reset();
        for (const char *path : {"/export", "/own", "/opt/KTVXmgrd", "/var/sadm", "/source"})
            fs::remove_all(path);
        // Whatever a method could be led to has a counterpart here.
        for (const char *name : {"vfstab", "one", "passwd", "motd", "profile", "CLUSTER", ".clustertoc",
                                 "INST_RELEASE", "swap", "node-std", "tool"})
            write(own + "/" + name, secret);
        for (const char *name :
             {"fs/cachefs", "sadm/system/admin", "sadm/install_data", "sadm/softinfo", "empty"})
            fs::create_directories(own + "/" + name);
        fs::permissions(own + "/passwd", fs::perms::owner_read);
        write(data + "/etc/autoinstall/small/one", "one disk\n");
        write("/var/sadm/pkg/KTVXqsvu/pkginfo", "ARCH=i386\n");
        write("/var/sadm/pkg/KTVXqsvr/pkginfo", "ARCH=i386\n");
        write("/etc/bootparams", "c1 root=localhost:" + root + "\n");
        fresh_root();
        before_ = state_of(own);
    }

    static void fresh_root() {
        fs::remove_all(root);
        write(root + "/etc/vfstab", table);
    }

    // Tries the attack before every system call of the method that names one of the needles.
    void at_every_moment(const std::string &method, const std::vector<std::string> &needles,
                         const std::function<void()> &attack,
                         const std::function<void()> &prepare = fresh_root, int stride = 1) const {
        int number = 1 - stride;
        for (attacks::Stopped stopped{.was_there = true}; stopped.was_there;) {
            prepare();
            std::vector<std::string> command{"/usr/bin/timeout", "-k", "1", "30", attacked_command(), "run"};
            for (const std::string &word : words_of(method))
                command.push_back(word);
            stopped = attacks::run_and_swap(command, needles, number += stride, attack);
            ASSERT_LT(stopped.status, 124) << "it hung before call " << number << ": " << stopped.call;
            ASSERT_EQ(state_of(own), before_) << "before call " << number << ": " << stopped.call;
            ASSERT_FALSE(holds_secret(root)) << "before call " << number << ": " << stopped.call;
        }
        EXPECT_GT(number, 3) << "hardly any call was seen";
    }

    // The same with a process that swaps all the time.
    void while_swapping(const std::string &method, const std::string &path, const std::string &target,
                        int runs = 10) const {
        for (int i = 0; i < runs; ++i) {
            fresh_root();
            fs::create_symlink(target, path + ".link");
            std::atomic<bool> goes_on{true};
            std::thread swapper([&] {
                while (goes_on)
                    renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, (path + ".link").c_str(), RENAME_EXCHANGE);
            });
            run(method);
            goes_on = false;
            swapper.join();
            ASSERT_EQ(state_of(own), before_) << "run " << i;
            ASSERT_FALSE(!fs::is_symlink(path) && holds_secret(root)) << "run " << i;
        }
    }

    static tests::Outcome run(const std::string &method) {
        const int status =
            system((attacked_command() + " run " + method + " >/tmp/said 2>&1 </dev/null").c_str());
        return {WEXITSTATUS(status), content("/tmp/said")};
    }

    std::string before_;
};

} // namespace

TEST_F(ClientRoot, TableThatBecomesALinkWhileItsCacheIsSwitchedOn) {
    at_every_moment("cachelet/enable_cache root=" + root, {"vfstab", root, "etc"},
                    [] { lay_link(root + "/etc/vfstab", own + "/vfstab"); });
}

TEST_F(ClientRoot, FolderOfTheTableThatBecomesALinkWhileItsCacheIsSwitchedOn) {
    at_every_moment("cachelet/enable_cache root=" + root, {"vfstab", root, "etc"},
                    [] { lay_link(root + "/etc", own); });
}

TEST_F(ClientRoot, CacheDirectoryThatBecomesALinkWhileItIsRemoved) {
    at_every_moment(
        "cachelet/disable_cache root=" + root, {"vfstab", root, "etc"},
        [] { lay_link(root + "/etc/fs", own + "/fs"); },
        [] {
            fresh_root();
            fs::create_directories(root + "/etc/fs/cachefs");
        });
}

TEST_F(ClientRoot, TableThatIsALinkInALoop) {
    while_swapping("cachelet/enable_cache root=" + root, root + "/etc/vfstab", own + "/vfstab");
    while_swapping("cachelet/enable_cache root=" + root, root + "/etc", own);
    while_swapping("cachelet/disable_cache root=" + root, root + "/etc", own);
}

TEST_F(ClientRoot, TableIsNotPutBackThroughALink) {
    at_every_moment(
        "client/add_cachelet hostname=c1 profile_set=small profile=one", {"vfstab", ".autoinstall"},
        [] { lay_link(root + "/etc/vfstab", own + "/vfstab"); },
        [] {
            fresh_root();
            write(root + "/.autoinstall", "in the way, so that the second step fails\n");
        });
}

TEST_F(ClientRoot, ProfileFolderThatBecomesALink) {
    at_every_moment("cachelet/set_disk_profile profile_set=small profile=one root=" + root, {".autoinstall"},
                    [] { lay_link(root + "/.autoinstall", own); });
}

TEST_F(ClientRoot, ProfileThatBecomesALink) {
    at_every_moment("cachelet/set_disk_profile profile_set=small profile=one root=" + root, {".autoinstall"},
                    [] { lay_link(root + "/.autoinstall/one", own + "/one"); });
}

TEST_F(ClientRoot, MountTableThatBecomesALinkWhileALineIsAdded) {
    const std::string add =
        "filesystem/add_mount_entry resource=srv:/x mountpt=/x vfstab=" + root + "/etc/vfstab";
    at_every_moment(add, {"vfstab", root, "etc"}, [] { lay_link(root + "/etc/vfstab", own + "/vfstab"); });
    at_every_moment(add, {"vfstab", root, "etc"}, [] { lay_link(root + "/etc", own); });
}

TEST_F(ClientRoot, MountTableThatBecomesALinkWhileAMountIsMadeForTheNextBoot) {
    const std::string add = "filesystem/mount resource=srv:/x mountpt=/x fstype=nfs takeeffect=bootonly "
                            "vfstab=" +
                            root + "/etc/vfstab";
    at_every_moment(add, {"vfstab"}, [] { lay_link(root + "/etc/vfstab", own + "/vfstab"); });
}

TEST_F(ClientRoot, MountTableThatIsALinkIsNotEdited) {
    fs::remove(root + "/etc/vfstab");
    fs::create_symlink(own + "/vfstab", root + "/etc/vfstab");
    for (const char *method : {"add_mount_entry resource=srv:/x",
                               "mount resource=srv:/x mountpt=/x fstype=nfs takeeffect=bootonly",
                               "unmount mountpt=/x takeeffect=bootonly"}) {
        const tests::Outcome ran =
            run(std::string("filesystem/") + method + " vfstab=" + root + "/etc/vfstab");
        EXPECT_EQ(ran.status, 1) << method;
        EXPECT_EQ(state_of(own), before_) << method;
    }
}

class FilledRoot : public ClientRoot {
protected:
    void SetUp() override {
        ClientRoot::SetUp();
        if (IsSkipped())
            return;
        for (const char *name : {"etc/passwd", "etc/motd", "var/tool", "usr/tool"})
            write(std::string("/source/") + name, "of the service\n");
        fs::permissions("/source/usr/tool", fs::perms(04755));
        for (const char *name : {".clustertoc", "CLUSTER", "INST_RELEASE"})
            write(std::string("/export/Quorvel_2.5/var/sadm/system/admin/") + name, "catalogue\n");
        // Installs as one would that trusts its root: by name, following links.
        standin::place("/usr/sbin/pkgadd",
                       {.script =
                            "mkdir -p $4/etc $4/var/sadm/system/admin $4/usr; cp /source/etc/passwd $4/etc/; "
                            "chmod 4755 $4/etc/passwd; chown 12 $4/etc/passwd; cp /source/usr/tool $4/usr/"});
    }
    const std::string from_packages =
        "service/create_root rootpath=" + root + " os_name=Quorvel os_version=2.5 sources=/source";
    const std::string from_tree =
        "service/create_root rootpath=" + root + " os_name=Quorvel os_version=4.1 sources=/source";
};

TEST_F(FilledRoot, LinksThatWereThereBefore) {
    for (const char *name : {"etc", "usr", "var", "var/sadm", "var/sadm/system/admin", "etc/passwd",
                             "var/sadm/system/admin/CLUSTER"})
        for (const std::string &method : {from_packages, from_tree}) {
            fresh_root();
            lay_link(root + "/" + name,
                     fs::is_directory("/source/" + std::string(name)) ? own : own + "/passwd");
            run(method);
            EXPECT_EQ(state_of(own), before_) << name << " with " << method;
        }
}

TEST_F(FilledRoot, FolderThatBecomesALinkWhilePackagesAreInstalled) {
    at_every_moment(from_packages, {root}, [] { lay_link(root + "/etc", own); });
}

TEST_F(FilledRoot, CatalogueThatBecomesALink) {
    at_every_moment(from_packages, {"CLUSTER", "/var/sadm"},
                    [] { lay_link(root + "/var/sadm/system/admin", own); });
}

TEST_F(FilledRoot, FolderThatBecomesALinkWhileATreeIsCopied) {
    if (!fs::exists("/usr/bin/cpio"))
        GTEST_SKIP() << "cpio is not installed";
    at_every_moment(from_tree, {root, "etc", "usr"}, [] {
        lay_link(root + "/etc", own);
        lay_link(root + "/usr", own);
    });
}

TEST_F(FilledRoot, ScriptOfTheClientIsNotRunForItsDevices) {
    const auto prepare = [] {
        fresh_root();
        write(root + "/dev/MAKEDEV", "#!/bin/sh\nid >/own/ran\n");
        fs::permissions(root + "/dev/MAKEDEV", fs::perms(0755));
        write("/source/MAKEDEV", "#!/bin/sh\n: >node-$1\nmkdir -p sub\n: >sub/motd\n");
        fs::permissions("/source/MAKEDEV", fs::perms(0755));
    };
    prepare();
    EXPECT_EQ(run("host/make_devices device=std directory=" + root + "/dev").status, 1);
    EXPECT_EQ(
        run("host/make_devices device=std script=" + root + "/dev/MAKEDEV directory=" + root + "/dev").status,
        1);
    EXPECT_EQ(state_of(own), before_);
    at_every_moment(
        "host/make_devices device=std script=/source/MAKEDEV directory=" + root + "/dev",
        {root, "dev", "node", "sub"}, [] { lay_link(root + "/dev", own); }, prepare);
    at_every_moment(
        "host/make_devices device=std script=/source/MAKEDEV directory=" + root + "/dev", {"node", "sub"},
        [] { lay_link(root + "/dev/sub", own); }, prepare);
}

// ---- the whole of a client ----

class WholeClient : public ClientRoot {
protected:
    void SetUp() override {
        ClientRoot::SetUp();
        if (IsSkipped())
            return;
        // Keeps a list, as the real one does.
        standin::place("/usr/sbin/share",
                       {.script = "tab=/etc/dfs/sharetab; [ $# = 0 ] && { cat $tab; exit 0; }\n"
                                  "while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done\n"
                                  "shift $((OPTIND - 1)); echo \"-  $1  $opts  \\\"\\\"\" >>$tab"});
        standin::place("/usr/sbin/unshare", {.script = "shift 2; sed -i \"\\|  $1  |d\" /etc/dfs/sharetab"});
        for (const char *name :
             {"etc/passwd", "etc/motd", "usr/tool", "usr/platform/kel4m/lib/fs/nfs/inetboot"})
            write(std::string("/source/") + name, "of the service\n");
        fs::permissions("/source/usr/tool", fs::perms(04755));
    }
    static void nobody() {
        for (const char *path : {"/export", "/tftpboot", "/etc/dfs", "/var/lib/hostadm"})
            fs::remove_all(path);
        write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
        for (const char *table_name :
             {"/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab", "/etc/dfs/sharetab"})
            write(table_name, "");
    }
    // Added once; then its root lost everything.
    void emptied() const {
        nobody();
        const tests::Outcome added = run(add);
        ASSERT_EQ(added.status, 0) << added.output;
        for (const fs::directory_entry &entry : fs::directory_iterator(root))
            fs::remove_all(entry.path());
    }
    const std::string add = "client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                            "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 "
                            "server=server1 tree=/source swap_size=1m swappath=" +
                            root + "/var/c1/swap";
};

TEST_F(WholeClient, EmptiedRootIsFilledAgainWhileItBecomesALink) {
    for (const char *folder : {"etc", "usr"})
        at_every_moment(
            add, {root, "/" + std::string(folder), std::string(folder) + "/"},
            [&] {
                fs::remove_all(root + "/" + folder);
                lay_link(root + "/" + folder, own);
            },
            [this] { emptied(); }, 11); // a sample: there are hundreds of calls
}

TEST_F(WholeClient, FolderOfItsSwapThatIsALinkIsNeitherSharedNorEmptied) {
    emptied();
    fs::remove_all(root + "/var");
    fs::create_symlink(own, root + "/var");
    fs::create_directories(own + "/c1");
    write(own + "/c1/swap", secret);
    before_ = state_of(own);
    run(add);
    EXPECT_THAT(content("/etc/dfs/sharetab"), Not(HasSubstr(own)));
    EXPECT_THAT(content("/etc/dfs/dfstab"), Not(HasSubstr(own)));
    run("client/remove hostname=c1 purge=yes");
    EXPECT_EQ(state_of(own), before_);
}

TEST_F(WholeClient, IsRemovedWhileItLaysLinks) {
    at_every_moment(
        "client/remove hostname=c1 purge=yes", {root, "swap", "etc", "sub"},
        [] {
            lay_link(root + "/etc", own);
            lay_link(root + "/var", own);
        },
        [this] {
            emptied();
            write(root + "/etc/sub/motd", "the client's\n");
            write(root + "/var/c1/swap", "");
        },
        5);
}

TEST_F(WholeClient, IsRenamedAndItsSwapResizedWhileTheFolderOfThatBecomesALink) {
    const std::string renamed = "/export/root/of-c1";
    const auto added = [&] {
        nobody();
        const std::string elsewhere = std::regex_replace(add, std::regex(root), renamed);
        ASSERT_EQ(run(elsewhere + " rootpath=" + renamed).status, 0) << content("/tmp/said");
    };
    write(own + "/c1/swap", secret);
    before_ = state_of(own);
    at_every_moment(
        "client/change hostname=c1 new_hostname=new swap_size=2m", {"swap", "/var", "c1"},
        [&] { lay_link(renamed + "/var", own); }, added, 4);
}

TEST_F(WholeClient, SwapFileThatBecomesADeviceOrFifoIsNeverOpened) {
    for (const mode_t kind : {S_IFIFO, S_IFCHR})
        at_every_moment(
            "client/change hostname=c1 swap_size=2m", {"swap", root, "/proc/self/fd"},
            [kind] {
                fs::remove(root + "/var/c1/swap");
                mknod((root + "/var/c1/swap").c_str(), kind | 0644, kind == S_IFCHR ? makedev(1, 5) : 0);
            },
            [this] {
                nobody();
                ASSERT_EQ(run(add).status, 0) << content("/tmp/said");
            });
}

// ---- what is no file at all ----

TEST_F(ClientRoot, TableThatBecomesAFifoHoldsNobodyUp) {
    for (const std::string &method :
         {std::string("cachelet/enable_cache root=" + root),
          std::string("cachelet/disable_cache root=" + root),
          std::string("client/add_cachelet hostname=c1 profile_set=small profile=one")})
        at_every_moment(method, {"vfstab"}, [] {
            fs::remove(root + "/etc/vfstab");
            mkfifo((root + "/etc/vfstab").c_str(), 0644);
        });
}

TEST_F(ClientRoot, WhatIsNoTableIsRefusedAtOnce) {
    const auto lay_fifo = [](const std::string &path) { mkfifo(path.c_str(), 0644); };
    const auto lay_device = [](const std::string &path) {
        mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 5));
    };
    const auto lay_giant = [](const std::string &path) {
        write(path, "");
        fs::resize_file(path, 1ULL << 40U);
    };
    for (const auto &lay :
         std::vector<std::function<void(const std::string &)>>{lay_fifo, lay_device, lay_giant})
        for (const std::string &method :
             {std::string("cachelet/enable_cache root=" + root), "cachelet/disable_cache root=" + root,
              std::string("client/add_cachelet hostname=c1 profile_set=small profile=one"),
              "filesystem/add_mount_entry resource=srv:/x vfstab=" + root + "/etc/vfstab"}) {
            fresh_root();
            fs::remove(root + "/etc/vfstab");
            lay(root + "/etc/vfstab");
            const int status = system(
                ("timeout -k 1 20 " + attacked_command() + " run " + method + " >/tmp/said 2>&1 </dev/null")
                    .c_str());
            EXPECT_EQ(WEXITSTATUS(status), 1) << method << ": " << content("/tmp/said");
            EXPECT_THAT(content("/tmp/said"), HasSubstr("/etc/vfstab")) << method;
        }
}
