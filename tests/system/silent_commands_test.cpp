// SPDX-License-Identifier: MIT
// Commands whose silence is the library's sign of success, killed in silence.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>

#include "support/hostadm_command.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using hostadm_command::hostadm;
using testing::AllOf;
using testing::HasSubstr;
using tests::write;

class SilentCommands : public testing::Test {
protected:
    void SetUp() override {
        standin::reset();
        for (const char *path :
             {"/usr/sbin/mount", "/usr/sbin/umount", "/usr/sbin/share", "/usr/sbin/unshare"})
            standin::place(path, {.script = "[ $# = 0 ] && { cat /etc/dfs/sharetab; exit 0; }\nkill -9 $$"});
        write("/etc/vfstab", "h:/d - /mnt/d nfs - yes rw\n");
        write("/etc/dfs/dfstab", "share -F nfs -o rw /export/home\n");
        write("/etc/dfs/sharetab", "-  /export/home  rw  \"\"\n");
        fs::create_directories("/export/home");
        fs::create_directories("/export/other");
        fs::create_directories("/mnt/d");
    }
    static void expect_failure(const std::string &words, const std::string &why) {
        const auto result = hostadm("run " + words);
        EXPECT_EQ(result.status, 1) << words;
        EXPECT_THAT(result.error, AllOf(HasSubstr(why), HasSubstr("was it killed? (error 118)")));
    }
};

} // namespace

TEST_F(SilentCommands, AreNotTakenForAShare) {
    expect_failure("filesystem/share pathname=/export/other",
                   "/export/other is not shared: /usr/sbin/share ended");
}

TEST_F(SilentCommands, AreNotTakenForTheEndOfAShare) {
    expect_failure("filesystem/unshare pathname=/export/home",
                   "/export/home is still shared: /usr/sbin/unshare ended");
}

TEST_F(SilentCommands, AreNotTakenForAMount) {
    expect_failure("filesystem/mount resource=h:/d mountpt=/mnt/d fstype=nfs",
                   "h:/d is not mounted on /mnt/d: /usr/sbin/mount ended");
}

TEST_F(SilentCommands, AreNotTakenForTheEndOfAMount) {
    ASSERT_EQ(mount("d", "/mnt/d", "tmpfs", 0, "size=64k"), 0);
    expect_failure("filesystem/unmount mountpt=/mnt/d", "/mnt/d is still mounted: /usr/sbin/umount ended");
    umount("/mnt/d");
}

TEST_F(SilentCommands, ThatDidTheirWorkBeforeTheyWereKilledAreBelievedByIt) {
    standin::place("/usr/sbin/share",
                   {.script = "[ $# = 0 ] && { cat /etc/dfs/sharetab; exit 0; }\n"
                              "echo '-  /export/other  rw  \"\"' >>/etc/dfs/sharetab; kill -9 $$"});
    standin::place("/usr/sbin/mount", {.script = "/usr/bin/mount -t tmpfs d /mnt/d; kill -9 $$"});
    const auto shared = hostadm("run filesystem/share pathname=/export/other takeeffect=nowonly");
    EXPECT_EQ(shared.status, 0) << shared.error;
    const auto mounted = hostadm("run filesystem/mount resource=h:/d mountpt=/mnt/d fstype=nfs");
    EXPECT_EQ(mounted.status, 0) << mounted.error;
    umount("/mnt/d");
}
