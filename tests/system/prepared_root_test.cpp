// SPDX-License-Identifier: MIT
// What a new client finds in its own root: mount table, hosts, name and devices of a System V and of a Debian-like tree.
// The root is the client's, who may have laid links anywhere in it. Sharing is played by stand-ins.
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tests::content;
using tests::hostadm;
using tests::Outcome;
using tests::write;

const std::string c1 =
    " hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c server=server1 swap_size=1m"
    " instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 tree=/tree";
const std::string root = "/export/root/c1";

class PreparedRoot : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        standin::reset();
        standin::place("/usr/sbin/share", {.script = R"(
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
[ -f /complain ] && { echo "share: no"; exit 1; }
echo "-  $1  $opts  \"\"" >>$tab)"});
        standin::place("/usr/sbin/unshare",
                       {.script = "shift 2; sed -i \"\\\\|  $1  |d\" /etc/dfs/sharetab"});
        for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
            standin::place(daemon, {.stay = true});
            standin::start(daemon, "-a");
        }
        for (const char *path :
             {"/export", "/tftpboot", "/tree", "/etc/dfs", "/var/lib/hostadm", "/complain"})
            fs::remove_all(path);
        write("/etc/hosts", "127.0.0.1\tlocalhost\n10.1.2.1\tserver1\n");
        write("/etc/dfs/dfstab", "# shares\n");
        write("/etc/dfs/sharetab", "");
        write("/etc/ethers", "# ethers\n");
        write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
        write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
    }
    static json added(const std::string &more = "") {
        const Outcome run = hostadm("run --json client/add_diskless" + c1 + more + " 2>/tmp/errors");
        EXPECT_EQ(run.status, 0) << content("/tmp/errors");
        const json result = json::parse(run.output, nullptr, false);
        return result.is_object() ? result : json::object();
    }
    static std::string result_of(const json &run, const std::string &step) {
        std::string results;
        for (const json &row : run.at("rows"))
            if (row.at("step") == step)
                results += row.at("result").get<std::string>() + " ";
        return results;
    }
};

TEST_F(PreparedRoot, OfSystemVNamesItsFileSystemsItsHostsAndItself) {
    write("/tree/etc/vfstab", "# mounts\n/proc - /proc proc - no -\n");
    write("/tree/etc/hostname.le0", "");
    added(" dumppath=/export/dump/c1/dump");
    EXPECT_EQ(content(root + "/etc/vfstab"), "# mounts\n/proc - /proc proc - no -\n"
                                             "server1:/export/root/c1\t-\t/\tnfs\t-\tno\trw\n"
                                             "server1:/export/swap/c1/swap\t-\t/dev/swap\tnfs\t-\tno\t-\n"
                                             "server1:/export/dump/c1/dump\t-\t/dev/dump\tnfs\t-\tno\t-\n");
    EXPECT_EQ(content(root + "/etc/hosts"), "127.0.0.1\tlocalhost\n10.1.2.3\tc1\n10.1.2.1\tserver1\n");
    EXPECT_EQ(content(root + "/etc/nodename"), "c1\n");
    EXPECT_EQ(content(root + "/etc/hostname.le0"), "c1\n");
    EXPECT_FALSE(fs::exists(root + "/dev/null")) << "its numbers are that system's own";
}

TEST_F(PreparedRoot, OfDebianNamesItsFileSystemsItsHostsItselfAndHasDevices) {
    write("/tree/etc/debian_version", "12.0\n");
    added();
    EXPECT_EQ(content(root + "/etc/fstab"), "server1:/export/root/c1\t/\tnfs\trw\t0\t0\n"
                                            "server1:/export/swap/c1\t/var/swap\tnfs\trw\t0\t0\n"
                                            "/var/swap/swap\tnone\tswap\tsw,nofail\t0\t0\n");
    EXPECT_TRUE(fs::is_directory(root + "/var/swap"));
    EXPECT_EQ(content(root + "/etc/hostname"), "c1\n");
    struct stat device {};
    ASSERT_EQ(lstat((root + "/dev/null").c_str(), &device), 0);
    EXPECT_TRUE(S_ISCHR(device.st_mode));
    EXPECT_EQ(device.st_rdev, makedev(1, 3));
    EXPECT_EQ(device.st_mode & 07777, 0666U);
}

TEST_F(PreparedRoot, LosesTheNameOfTheServerThatItsTreeWasMadeOn) {
    char server[256];
    ASSERT_EQ(gethostname(server, sizeof server), 0);
    for (const std::string &name : {std::string(server), std::string("localhost")}) {
        fs::remove_all("/export");
        write("/tree/etc/hostname", name + "\n");
        added();
        EXPECT_EQ(content(root + "/etc/hostname"), "c1\n") << name;
    }
}

TEST_F(PreparedRoot, IsUnchangedByASecondRun) {
    write("/tree/etc/fstab", "proc /proc proc defaults 0 0\n");
    added();
    const std::string before = content(root + "/etc/fstab") + content(root + "/etc/hosts");
    const json again = added();
    EXPECT_EQ(again.at("outputs").at("changed"), "no");
    for (const char *step : {"mount table", "table of hosts", "host name", "devices"})
        EXPECT_EQ(result_of(again, step), "unchanged ") << step;
    EXPECT_EQ(content(root + "/etc/fstab") + content(root + "/etc/hosts"), before);
}

TEST_F(PreparedRoot, KeepsWhatIsThereAlready) {
    const std::string mounts = "elsewhere:/golden / nfs ro 0 0\n", hosts = "10.9.9.9 C1\n10.1.2.1 boss\n"
                                                                           "::1 localhost\n";
    write("/tree/etc/fstab", mounts);
    write("/tree/etc/hosts", hosts);
    write("/tree/etc/hostname", "golden\n");
    write("/tree/dev/null", "a file");
    const json run = added();
    EXPECT_THAT(content(root + "/etc/fstab"),
                AllOf(StartsWith(mounts), Not(HasSubstr("server1:/export/root"))));
    EXPECT_EQ(content(root + "/etc/hosts"), hosts);
    EXPECT_EQ(content(root + "/etc/hostname"), "golden\n");
    EXPECT_EQ(result_of(run, "host name"), "kept ");
    EXPECT_EQ(content(root + "/dev/null"), "a file");
}

TEST_F(PreparedRoot, IsLeftAloneOnRequest) {
    write("/tree/etc/vfstab", "# mounts\n");
    const json run = added(" prepare=no");
    EXPECT_EQ(content(root + "/etc/vfstab"), "# mounts\n");
    EXPECT_FALSE(fs::exists(root + "/etc/hosts"));
    EXPECT_EQ(result_of(run, "mount table"), "");
}

TEST_F(PreparedRoot, OfAnUnknownKindIsLeftAloneAndTold) {
    write("/tree/etc/motd", "welcome\n");
    const json run = added();
    EXPECT_EQ(result_of(run, "root"), "done warning ");
    EXPECT_FALSE(fs::exists(root + "/etc/hosts"));
}

TEST_F(PreparedRoot, LeadsNoLineToTheServersOwnFiles) {
    const std::string hosts = content("/etc/hosts");
    write("/tree/etc/debian_version", "12.0\n");
    fs::create_symlink("/etc/hosts", "/tree/etc/hosts");
    fs::create_symlink("../../../../etc/hostname", "/tree/etc/hostname");
    fs::create_symlink("/victim", "/tree/dev");
    write("/victim/kept", "");
    const std::string name = content("/etc/hostname");
    const Outcome run = hostadm("run client/add_diskless" + c1);
    EXPECT_EQ(content("/etc/hosts").substr(0, hosts.size()), hosts);
    EXPECT_EQ(content("/etc/hostname"), name);
    EXPECT_FALSE(fs::exists("/victim/null"));
    EXPECT_NE(run.status, 0);
    EXPECT_THAT(run.output, AllOf(HasSubstr("prepare=no"), HasSubstr("has been taken back")));
    fs::remove_all("/victim");
}

TEST_F(PreparedRoot, FollowsTheLinksOfItsFoldersInsideIt) {
    write("/tree/etc-of-client/vfstab", "");
    fs::create_directory_symlink("/etc-of-client", "/tree/etc");
    added();
    EXPECT_THAT(content(root + "/etc-of-client/vfstab"), HasSubstr("server1:/export/root/c1\t-\t/\t"));
    EXPECT_EQ(content("/etc/vfstab").find("server1:/export/root/c1"), std::string::npos);
}

TEST_F(PreparedRoot, IsAsBeforeWhenALaterStepOfASecondRunFails) {
    write("/tree/etc/fstab", "");
    added(" prepare=no");
    fs::remove("/etc/dfs/sharetab");
    write("/etc/dfs/sharetab", "");
    write("/complain", "");
    const Outcome run = hostadm("run client/add_diskless" + c1);
    EXPECT_NE(run.status, 0);
    EXPECT_EQ(content(root + "/etc/fstab"), "");
    EXPECT_FALSE(fs::exists(root + "/etc/hosts"));
    EXPECT_FALSE(fs::exists(root + "/etc/hostname"));
    EXPECT_FALSE(fs::exists(root + "/dev/null"));
}

} // namespace
