// SPDX-License-Identifier: MIT
// Jobs that are cut off, or fail, at a system call by which they open or change files: the calls are counted
// first, then the job runs once for each of them and each fault. What is left is either undone or said, and
// every table is the old or the new one at any moment.
//
// By default a sample is taken, spread over all calls. "--full" takes every call with every fault:
//     in-sandbox -- system_power_cut_test --full
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "hostadm.h"
#include "hostadm/framework.h"
#include "support/faults.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::Contains;
using testing::HasSubstr;
using tests::content;
using tests::write;

bool full = false;
const char *const record_of_errors = "/words.errors";

} // namespace

// What the library records is kept in a file, since the job runs in a process of its own.
int adm_err_setf(adm_error *, int code, const char *, ...) {
    std::ofstream(record_of_errors, std::ios::app) << code << '\n';
    return 0;
}

namespace {

std::set<std::string> names_in(const std::string &directory) {
    std::set<std::string> names;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(directory, error))
        names.insert(entry.path());
    return names;
}

// Types, modes, owners, link targets and contents of all below.
std::string snapshot(const std::vector<std::string> &areas) {
    std::string all;
    const auto describe = [&](const fs::path &path) {
        struct stat file {};
        if (lstat(path.c_str(), &file) != 0)
            return;
        char head[64];
        std::snprintf(head, sizeof head, " %o %u:%u", file.st_mode, file.st_uid, file.st_gid);
        all += path.string() + head;
        if (S_ISLNK(file.st_mode))
            all += " -> " + fs::read_symlink(path).string();
        else if (S_ISREG(file.st_mode))
            all += std::string(" ") + std::to_string(file.st_size) +
                   (file.st_size < 4096 ? ": " + content(path) : "");
        all += '\n';
    };
    for (const std::string &area : areas) {
        describe(area);
        std::set<fs::path> paths;
        std::error_code error;
        for (const auto &entry : fs::recursive_directory_iterator(area, error))
            paths.insert(entry.path());
        for (const fs::path &path : paths)
            describe(path);
    }
    return all;
}

// A cut between the making of a directory and the setting of its mode leaves it without the set-group-ID bit;
// what is there already keeps the mode that it has.
std::string without_group_bit(std::string state) {
    for (std::size_t at; (at = state.find(" 42755 ")) != state.npos;)
        state[at + 2] = '0';
    return state;
}

constexpr std::size_t usual_runs = 60; // of a whole job, where not all are wanted
constexpr int cut = 0;
constexpr int errors[] = {EIO, ENOSPC, EACCES, EINTR};

const char *name_of(int error) {
    return error == cut ? "power cut" : strerrorname_np(error);
}

class PowerCut : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // which would need to trace, too
    }

    // Runs the job once with each fault that is to be tried. `check` gets what happened and the fault.
    // About `runs` of them unless all are wanted.
    void sweep(const std::function<void()> &prepare, const std::function<int()> &job, std::size_t runs,
               const std::function<void(const faults::Ran &, int)> &check) {
        prepare();
        const faults::Ran whole = faults::run(job);
        ASSERT_TRUE(WIFEXITED(whole.status) && WEXITSTATUS(whole.status) == 0) << words();
        const std::size_t kinds = std::size(errors) + 1, count = whole.calls.size();
        ASSERT_GT(count, 4u);
        const std::size_t all = count * kinds;
        const std::size_t stride = full || runs >= all ? 1 : (all + runs - 1) / runs;
        std::size_t done = 0, missed = 0;
        for (std::size_t i = 0; i < all; i += stride, ++done) {
            // Each round meets another kind of fault at a call, so that a sample holds all kinds.
            const std::size_t call = i / kinds, kind = (i + call + done) % kinds;
            const int error = stride == 1 ? (i % kinds == kinds - 1 ? cut : errors[i % kinds])
                              : kind == kinds - 1 || done % 2 == 0 ? cut
                                                                   : errors[kind];
            SCOPED_TRACE(std::string(name_of(error)) + " at call " + std::to_string(call + 1) + ", " +
                         whole.calls[call]);
            prepare();
            faulted_ = whole.calls[call];
            const faults::Ran ran = faults::run(job, {static_cast<int>(call) + 1, error});
            // Processes that run side by side need not make the same number of calls each time.
            if (!ran.met) {
                ++missed;
                continue;
            }
            check(ran, error);
        }
        std::printf("%zu system calls, %zu of %zu faults tried, %zu not met\n", count, done, all, missed);
        EXPECT_LE(missed * 10, done);
    }

    std::string faulted_; // the call that was made to fail, or was the last

    static bool failed(const faults::Ran &ran) {
        return !WIFEXITED(ran.status) || WEXITSTATUS(ran.status) != 0;
    }
    static std::string words() { return content("/words.out"); }
    static std::string errors_recorded() { return content(record_of_errors); }
};

// ---- the directories and settings that the package tools want ----

const std::string root = "/client";

class Environment : public PowerCut {
protected:
    static void prepare() {
        fs::remove_all(root);
        fs::create_directory(root);
        for (const std::string &name : names_in("/tmp"))
            if (name.starts_with("/tmp/admin."))
                fs::remove(name);
    }
    static std::size_t admin_files(const std::string &text = "") {
        std::size_t count = 0;
        for (const std::string &name : names_in("/tmp"))
            count += name.starts_with("/tmp/admin.") && (text.empty() || content(name) == text);
        return count;
    }
    static std::size_t directories() {
        std::size_t count = 0;
        for (const char *directory :
             {"/var", "/var/sadm", "/var/sadm/softinfo", "/var/sadm/install_data", "/usr"})
            count += fs::is_directory(root + directory);
        return count;
    }
};

const std::string admin_text =
    "mail=\ninstance=unique\npartial=nocheck\nrunlevel=nocheck\nidepend=nocheck\nrdepend=nocheck\n"
    "space=quit\nsetuid=nocheck\nconflict=nocheck\naction=nocheck\nbasedir=/\n";

TEST_F(Environment, IsThereWholeOrUndone) {
    const auto job = [] { return setup_environment(root.c_str()) == 0 ? 0 : 1; };
    sweep(prepare, job, 100, [&](const faults::Ran &ran, int error) {
        if (error == cut) { // the next run makes it whole
            const std::size_t there = admin_files(admin_text);
            EXPECT_EQ(setup_environment(root.c_str()), 0);
            EXPECT_EQ(directories(), 5u);
            EXPECT_EQ(admin_files(admin_text), there + 1) << "settings of its own";
            return;
        }
        if (!failed(ran)) {
            EXPECT_EQ(directories(), 5u);
            EXPECT_EQ(admin_files(admin_text), 1u);
            return;
        }
        EXPECT_EQ(admin_files(), 0u) << "no settings stay behind";
        // Only when the settings could not be opened do the directories stay.
        EXPECT_THAT(directories(), AnyOf(0u, 5u));
        EXPECT_EQ(directories() == 5, ran.calls.back().starts_with("openat /tmp/admin.") ||
                                          ran.calls.back().starts_with("unlink /tmp/admin.") ||
                                          ran.calls.back().starts_with("close /tmp/admin."))
            << ran.calls.back();
    });
}

// ---- the mount table of a cache-only client ----

const std::string table = root + "/etc/vfstab";
const std::string plain = "# table\n"
                          "s:/root\t-\t/\tnfs\t-\t-\trw\n"
                          "s:/usr\t-\t/usr\tnfs\t-\t-\t-\n"
                          "s:/home\t-\t/home\tnfs\t-\tyes\trw\n";
const std::string marked = "# table\n"
                           "s:/root\t-\t/\tnfs\t-\t-\trw,disconnectable\n"
                           "s:/usr\t-\t/usr\tnfs\t-\t-\t-,disconnectable\n"
                           "s:/home\t-\t/home\tnfs\t-\tyes\trw\n";

class ClientTable : public PowerCut {
protected:
    // Putting the new table in place is trusted: when only that fails, the call succeeds and the table is the
    // old one. The new one lies in /tmp: on one file system with it, the table is never anything else.
    void sweep_edit(int (*edit)(const char *), const std::string &before, const std::string &after) {
        const auto prepare = [&] {
            fs::remove_all(root);
            fs::create_directories(root + "/etc/fs");
            write(table, before);
            chmod(table.c_str(), 0640);
            for (const std::string &name : names_in("/tmp"))
                if (name.starts_with("/tmp/awk.") || name.starts_with("/tmp/vfstab."))
                    fs::remove(name);
            fs::remove(record_of_errors);
        };
        const auto job = [&] {
            const int words = open("/words.out", O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(words, STDERR_FILENO);
            return edit(root.c_str());
        };
        sweep(prepare, job, 80, [&](const faults::Ran &ran, int error) {
            EXPECT_THAT(content(table), AnyOf(before, after));
            if (content(table) == before) {
                EXPECT_EQ(fs::status(table).permissions(), fs::perms(0640));
            }
            if (error != cut && failed(ran)) {
                const bool directory_only = ran.calls.back().find("/etc/fs/cachefs") != std::string::npos;
                if (!directory_only) {
                    EXPECT_EQ(errors_recorded(), "37\n");
                    EXPECT_EQ(content(table), before) << "a failed edit changes nothing";
                }
            }
            EXPECT_EQ(edit(root.c_str()), 0) << "the next edit does it";
            EXPECT_EQ(content(table), after);
            EXPECT_EQ(fs::status(table).permissions(), fs::perms(0640));
        });
    }
};

TEST_F(ClientTable, IsTheOldOrTheNewOneWhenEnabled) {
    sweep_edit(enable_chart, plain, marked);
}

TEST_F(ClientTable, IsTheOldOrTheNewOneWhenDisabled) {
    sweep_edit(disable_chart, marked, plain);
}

// ---- a cache-only client ----

class CacheOnly : public PowerCut {
protected:
    static void prepare() {
        fs::remove_all(root);
        write(table, plain);
        chmod(table.c_str(), 0640);
        write("/var/sadm/pkg/KTVXqsvu/pkginfo", "ARCH=i386\n");
        write("/var/sadm/pkg/KTVXqsvr/pkginfo", "ARCH=i386\n");
        write("/etc/bootparams", "c1 root=localhost:/client\n");
        write("/opt/KTVXmgrd/2.2/etc/autoinstall/small/one", "one disk\n");
        for (const std::string &name : edits())
            fs::remove(name);
    }
    static int job() {
        const int words = open("/words.out", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(words, STDOUT_FILENO);
        dup2(words, STDERR_FILENO);
        return WEXITSTATUS(
            std::system("exec " HOSTADM_COMMAND
                        " run client/add_cachelet hostname=c1 root=/client profile_set=small profile=one"));
    }
    static int run_alone() {
        const pid_t child = fork();
        if (child == 0)
            _exit(job());
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    }
    // A folder may have been made by the one step or,
    // when that failed, by the next, which sets its group's bit.
    static std::string state() { return without_group_bit(snapshot({root})); }
    // Temporary files of edits.
    static std::set<std::string> edits() {
        std::set<std::string> names;
        for (const std::string &name : names_in("/tmp"))
            if (name.starts_with("/tmp/awk.") || name.starts_with("/tmp/vfstab."))
                names.insert(name);
        return names;
    }
};

TEST_F(CacheOnly, ClientIsAddedWholeOrNotOrItIsSaid) {
    prepare();
    const std::string before = state();
    ASSERT_EQ(run_alone(), 0) << words();
    const std::string complete = state();
    ASSERT_NE(before, complete);
    sweep(prepare, job, usual_runs, [&](const faults::Ran &ran, int error) {
        EXPECT_THAT(content(table), AnyOf(plain, marked));
        const std::string after = state(), said = words();
        if (error != cut && !failed(ran)) {
            EXPECT_EQ(after, complete) << "what reports success is done";
        }
        if (error != cut && failed(ran)) {
            EXPECT_NE(said, "") << "a failure has its reason";
            // Where only the answer was lost, everything is done.
            if (after != before && after != complete) {
                EXPECT_THAT(said, HasSubstr("could not be taken back: ")) << after;
            }
            if (said.find("could not be taken back: ") == said.npos) {
                EXPECT_TRUE(edits().empty()) << *edits().begin();
            }
        }
        EXPECT_EQ(run_alone(), 0) << words();
        EXPECT_EQ(state(), complete);
    });
}

// ---- a diskless client ----

const std::string share_script = R"(#!/bin/sh
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
{ grep -v "  $1  " $tab; echo "-  $1  $opts  \"\""; } >/standin/sharetab; cp /standin/sharetab $tab
)";
// In one step, as a kernel forgets a share.
const std::string unshare_script = R"(#!/bin/sh
shift 2
sed "\\|  $1  |d" /etc/dfs/sharetab >/standin/sharetab && cp /standin/sharetab /etc/dfs/sharetab
)";
const std::string words_of_job = "run --json client/add_diskless hostname=c1 address=10.1.2.3 "
                                 "ethernet=8:0:20:a:b:c instruction_set=kel4 implementation_arch=kel4m "
                                 "os_name=Quorvel os_version=2.5 server=server1 tree=/tree swap_size=64k";

const std::string old_hosts = "# hosts\n127.0.0.1\tlocalhost\n10.1.2.1\tserver1\n",
                  new_hosts = old_hosts + "10.1.2.3\tc1\n";
const std::string old_ethers = "# ethers\n", new_ethers = old_ethers + "08:00:20:0a:0b:0c\tc1\n";
const std::string old_bootparams = "other root=elsewhere:/export/root/other\n",
                  new_bootparams =
                      old_bootparams +
                      "c1 root=server1:/export/root/c1 swap=server1:/export/swap/c1/swap boottype=:di\n";
const std::string old_dfstab = "# shares\n",
                  one_share = old_dfstab + "share -F nfs -o rw=c1,root=c1 /export/root/c1\n",
                  new_dfstab = one_share + "share -F nfs -o rw=c1,root=c1 /export/swap/c1\n";

class Diskless : public PowerCut {
protected:
    void SetUp() override {
        PowerCut::SetUp();
        // Other programs of this machine come and go in the live one.
        ASSERT_EQ(mount("own", "/tmp", "tmpfs", 0, nullptr), 0);
        standin::reset();
        for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
            standin::place(daemon, {.stay = true});
            standin::start(daemon, "-a");
        }
        for (const auto &[path, text] :
             {std::pair("/usr/sbin/share", share_script), {"/usr/sbin/unshare", unshare_script}}) {
            fs::remove(path);
            write(path, text);
            chmod(path, 0755);
        }
        write("/tree/etc/motd", "welcome\n");
        write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
        prepare();
        around_ = names();
    }
    static void prepare() {
        for (const char *path : {"/export", "/tftpboot"})
            fs::remove_all(path);
        write("/etc/hosts", old_hosts);
        write("/etc/ethers", old_ethers);
        write("/etc/bootparams", old_bootparams);
        write("/etc/dfs/dfstab", old_dfstab);
        write("/etc/dfs/sharetab", "");
    }
    static int job() {
        const int words = open("/words.out", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int results = open("/words.results", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(words, STDERR_FILENO);
        dup2(results, STDOUT_FILENO);
        return WEXITSTATUS(std::system(("exec " HOSTADM_COMMAND " " + words_of_job).c_str()));
    }
    static std::set<std::string> names() {
        std::set<std::string> all = names_in("/tmp");
        all.merge(names_in("/etc"));
        return all;
    }
    static std::string state() {
        return snapshot({"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs", "/export", "/tftpboot"});
    }
    // The boot directory is the server's, not the client's: once made, it stays.
    static std::string without_boot_directory(const std::string &state) {
        std::istringstream lines(state);
        std::string rest;
        for (std::string line; std::getline(lines, line);)
            if (!line.starts_with("/tftpboot 42755 ") && !line.starts_with("/tftpboot/tftpboot "))
                rest += line + '\n';
        return rest;
    }
    static void expect_whole_tables() {
        EXPECT_THAT(content("/etc/hosts"), AnyOf(old_hosts, new_hosts));
        EXPECT_THAT(content("/etc/ethers"), AnyOf(old_ethers, new_ethers));
        EXPECT_THAT(content("/etc/bootparams"), AnyOf(old_bootparams, new_bootparams));
        EXPECT_THAT(content("/etc/dfs/dfstab"), AnyOf(old_dfstab, one_share, new_dfstab));
    }
    // Runs the job again until it is done, each time after what it has named is out of its way.
    static void expect_that_it_can_be_done_now(const std::string &complete) {
        for (int attempts = 1; run_alone() != 0; ++attempts) {
            ASSERT_LE(attempts, 3) << words();
            const std::string said = words();
            if (said.find("/export/root/c1 holds files already") != said.npos)
                fs::remove_all("/export/root/c1");
            else if (said.find("/export/swap/c1/swap has ") != said.npos)
                fs::remove("/export/swap/c1/swap");
            else
                FAIL() << "it says nothing of what stands in its way:\n" << said;
        }
        EXPECT_EQ(without_group_bit(state()), without_group_bit(complete));
    }
    static int run_alone() {
        const int status = std::system(
            ("exec " HOSTADM_COMMAND " " + words_of_job + " >/words.results 2>/words.out").c_str());
        return WEXITSTATUS(status);
    }

    std::set<std::string> around_;
};

TEST_F(Diskless, ClientIsAddedWholeOrNotOrItIsSaid) {
    prepare();
    const std::string before = state();
    ASSERT_EQ(run_alone(), 0) << words();
    const std::string complete = state();
    ASSERT_NE(before, complete);
    sweep(prepare, job, usual_runs, [&](const faults::Ran &ran, int error) {
        expect_whole_tables();
        // A directory that keeps a narrower mode than was meant is made all the same.
        if (error != cut && faulted_.starts_with("chmod "))
            return;
        if (error == cut) {
            expect_that_it_can_be_done_now(complete);
        } else if (!failed(ran)) {
            EXPECT_EQ(state(), complete) << "what reports success is done";
        } else {
            const std::string said = words(), after = state();
            // Where only the answer was lost, everything is done.
            if (without_boot_directory(after) != before && after != complete) {
                EXPECT_THAT(said, AnyOf(HasSubstr("could not be taken back: "), HasSubstr("left half done")))
                    << after;
            }
            EXPECT_NE(said, "") << "a failure has its reason";
            expect_that_it_can_be_done_now(complete);
        }
        for (const std::string &name : names())
            EXPECT_TRUE(around_.contains(name)) << name << " stays beside the tables";
    });
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    full = argc > 1 && std::strcmp(argv[1], "--full") == 0;
    if (!faults::available()) {
        std::puts("skipped: processes may not be traced here");
        return 77;
    }
    // Moving a temporary file over a table is one step only where /tmp lies in the root's file system.
    while (std::getenv("HOSTADM_SANDBOX") != nullptr && umount2("/tmp", MNT_DETACH) == 0) {
    }
    chmod("/tmp", 01777);
    return RUN_ALL_TESTS();
}
