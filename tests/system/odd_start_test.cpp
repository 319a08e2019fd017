// SPDX-License-Identifier: MIT
// How the command is started must not matter to what it does: with standard descriptors closed, where a file that is
// opened takes their numbers and what is printed would go into it; and in an environment that leads to catalogues of
// messages which somebody else has made.
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::write;

const std::string program = HOSTADM_COMMAND " run ";

int run(const std::string &command) {
    const int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class OddStart : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        standin::reset();
        standin::place("/usr/sbin/share",
                       {.script = "tab=/shared; [ $# = 0 ] && { cat $tab; exit 0; }\n"
                                  "shift 4; echo \"-  $1  rw=c1,root=c1  \\\"\\\"\" >>$tab"});
        write("/tree/etc/vfstab", "srv:/r - / nfs - no rw\n");
        write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
        prepare();
    }
    static void prepare() {
        for (const char *path : {"/export", "/tftpboot", "/var/lib/hostadm"})
            fs::remove_all(path);
        write("/shared", "");
        write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
        write("/etc/vfstab", "# table\n");
        write("/etc/ethers", "# ethers\n");
        write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
        write("/etc/dfs/dfstab", "# shares\n");
        write("/export/root/old/etc/vfstab", "srv:/r - / nfs - no rw\n");
    }
    static std::string everything() {
        std::string all;
        for (const char *path :
             {"/etc/hosts", "/etc/vfstab", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab", "/shared",
              "/export/root/old/etc/vfstab", "/export/root/c1/etc/vfstab",
              "/export/root/c1/usr/platform/kel4m/lib/fs/nfs/inetboot", "/tftpboot/0A010203"})
            all += std::string(path) + ":\n" + content(path);
        return all;
    }
};

TEST_F(OddStart, WithoutStandardDescriptorsTheSameIsDone) {
    const std::string jobs[] = {
        program + "filesystem/add_mount_entry resource=srv:/x mountpt=/x",
        program + "filesystem/add_mount_entry resource=srv:/x vfstab=/export/root/old/etc/vfstab",
        program + "cachelet/enable_cache root=/export/root/old",
        program + "client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                  "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 "
                  "server=server1 tree=/tree swap_size=64k"};
    for (const std::string &job : jobs) {
        prepare();
        ASSERT_EQ(run(job + " </dev/null >/said 2>&1"), 0) << content("/said");
        const std::string done = everything();
        for (const char *closed : {"<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-"}) {
            prepare();
            const int status = run(job + " " + closed);
            // Results that nobody can be told are a failure, and the work is done all the same.
            if (std::string(closed).find(" >&-") == std::string::npos && *closed != '>') {
                EXPECT_EQ(status, 0) << job << " " << closed;
            }
            EXPECT_EQ(everything(), done) << job << " " << closed;
        }
    }
}

TEST_F(OddStart, WithoutStandardDescriptorsAFailureChangesNothing) {
    const std::string before = everything();
    for (const char *closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        EXPECT_EQ(
            run(program + "filesystem/add_mount_entry resource=srv:/x vfstab=/nowhere/etc/vfstab " + closed),
            1);
        EXPECT_EQ(run(program + "filesystem/add_mount_entry wrong=word " + closed), 2);
        EXPECT_EQ(everything(), before) << closed;
    }
}

TEST_F(OddStart, WhereFilesMustNotGrowNoTableIsHalfWritten) {
    const std::string before = everything();
    for (const char *limit : {"0", "1"}) // in half kilobytes or kilobytes, whatever the shell counts in
        for (const std::string &job :
             {std::string("filesystem/add_mount_entry resource=srv:/x mountpt=/x"),
              std::string("database/set_host address=10.1.2.4 hostname=c2"),
              std::string("database/set_bootparams hostname=c2 parameters=root=server1:/export/root/c2")}) {
            // More than the limit, so that a table's copy cannot be whole.
            for (const char *table : {"/etc/vfstab", "/etc/hosts", "/etc/bootparams"})
                write(table, content(table) + "# " + std::string(2000, '-') + "\n");
            const std::string large = everything();
            EXPECT_NE(
                run("ulimit -f " + std::string(limit) + "; " + program + job + " </dev/null >/said 2>&1"), 0)
                << job;
            EXPECT_EQ(everything(), large) << job;
            prepare();
        }
    EXPECT_EQ(everything(), before);
}

TEST_F(OddStart, UnderAnOddMaskFilesHaveTheirUsualModes) {
    for (const char *mask : {"0777", "000"}) {
        prepare();
        ASSERT_EQ(run("umask " + std::string(mask) + "; " + program +
                      "client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                      "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 "
                      "server=server1 tree=/tree swap_size=64k </dev/null >/said 2>&1"),
                  0)
            << content("/said");
        EXPECT_EQ(fs::status("/export/swap/c1").permissions(), fs::perms(0755)) << mask;
        EXPECT_EQ(fs::status("/export/root/c1").permissions(), fs::perms(0755)) << mask;
        for (const auto &file : fs::directory_iterator("/export/swap/c1"))
            EXPECT_EQ(fs::status(file.path()).permissions() & fs::perms(0777), fs::perms(0600)) << mask;
    }
}

TEST_F(OddStart, NoCatalogueOfTheEnvironmentIsOpened) {
    // Whatever of these the C library took, it would look for a file there.
    const std::string environment =
        "LANG=C.utf8 LC_ALL=C.utf8 LANGUAGE=../../../../crafted:/crafted TEXTDOMAINDIR=/crafted "
        "TEXTDOMAIN=system_msgs NLSPATH=/crafted/%N LOCPATH=/crafted GCONV_PATH=/crafted "
        "OUTPUT_CHARSET=/crafted ";
    write("/crafted/LC_MESSAGES/system_msgs.mo", "no catalogue");
    write("/crafted/gconv-modules", "module INTERNAL crafted// crafted 1\n");
    ASSERT_EQ(run("which strace >/dev/null"), 0);
    // Where the variables count at all, this is seen.
    ASSERT_EQ(run("env " + environment + "strace -f -o /calls -e trace=%file ls /nowhere >/said 2>&1"), 2);
    ASSERT_THAT(content("/calls"), HasSubstr("crafted"));
    for (const char *job : {"filesystem/add_mount_entry resource=srv:/x vfstab=/nowhere/etc/vfstab",
                            "filesystem/add_mount_entry resource=srv:/x mountpt=/x", "no/such_method"}) {
        run("env " + environment + "strace -f -o /calls -e trace=%file " + program + job + " >/said 2>&1");
        EXPECT_THAT(content("/calls"), HasSubstr("execve(")) << job;
        // The environment stands in the first call.
        const std::string calls = content("/calls");
        EXPECT_THAT(calls.substr(calls.find('\n')), Not(HasSubstr("crafted"))) << job;
    }
}

} // namespace
