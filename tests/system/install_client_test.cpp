// SPDX-License-Identifier: MIT
// A client that boots to be installed: added, listed, removed; after that the server is as before. Sharing is played by
// stand-ins.
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::hostadm;
using tests::Outcome;
using tests::write;

const std::string identity = " instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5"
                             " server=server1 install_hierarchy=/cd";
const std::string i1 = "client/add_install hostname=i1 address=10.1.2.3 ethernet=8:0:20:a:b:c" + identity;
const std::string i2 = "client/add_install hostname=i2 address=10.1.2.4 ethernet=8:0:20:a:b:d" + identity;

class InstallClient : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        standin::reset();
        standin::place("/usr/sbin/share", {.script = R"(
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
[ -f /complain-share ] && { echo "share: $1: no"; exit 1; }
echo "-  $1  $opts  \"\"" >>$tab)"});
        standin::place("/usr/sbin/unshare", {.script = R"(
shift 2
[ -f /complain-unshare ] && { echo "unshare: $1: busy"; exit 1; }
sed -i "\\|  $1  |d" /etc/dfs/sharetab)"});
        for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
            standin::place(daemon, {.stay = true});
            standin::start(daemon, "-a");
        }
        for (const char *path : {"/tftpboot", "/cd", "/config", "/etc/dfs", "/var/lib/hostadm",
                                 "/complain-share", "/complain-unshare"})
            fs::remove_all(path);
        write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
        write("/etc/dfs/dfstab", "# shares\n");
        write("/etc/dfs/sharetab", "");
        write("/etc/ethers", "# ethers\n");
        write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
        write("/cd/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
        write("/config/rules", "any - - - -\n");
    }
    static std::string tables() {
        return content("/etc/hosts") + content("/etc/ethers") + content("/etc/bootparams") +
               content("/etc/dfs/dfstab") + content("/etc/dfs/sharetab") +
               content("/var/lib/hostadm/common_shares") +
               (fs::is_symlink("/tftpboot/0A010203") ? "links of i1" : "");
    }
    static json answer(const std::string &words) {
        const Outcome run = hostadm("run --json " + words + " 2>/tmp/errors");
        EXPECT_EQ(run.status, 0) << words << content("/tmp/errors");
        const json result = json::parse(run.output, nullptr, false);
        return result.is_object() ? result : json::object();
    }
    static std::string changed(const std::string &words) {
        return answer(words).value("/outputs/changed"_json_pointer, "nothing was said");
    }
    static void expect_refused(const std::string &words, const std::string &complaint) {
        const std::string before = tables();
        const Outcome run = hostadm("run " + words);
        EXPECT_NE(run.status, 0) << words;
        EXPECT_THAT(run.output, HasSubstr(complaint));
        EXPECT_EQ(tables(), before);
    }
};

TEST_F(InstallClient, IsToldWhereItIsInstalledFrom) {
    EXPECT_EQ(changed(i1 + " install_config=/config"), "yes");
    EXPECT_THAT(content("/etc/bootparams"),
                HasSubstr("i1 install=server1:/cd install_config=server1:/config boottype=:in\n"));
    EXPECT_EQ(content("/tftpboot/0A010203.KEL4M"), "boot program");
    EXPECT_THAT(content("/etc/dfs/sharetab"), AllOf(HasSubstr("/cd  ro"), HasSubstr("/config  ro")));
    EXPECT_THAT(content("/etc/ethers"), HasSubstr("08:00:20:0a:0b:0c\ti1\n"));
    EXPECT_EQ(changed(i1 + " install_config=/config"), "no");
    const json listed = answer("client/list");
    ASSERT_EQ(listed.at("rows").size(), 1U);
    EXPECT_THAT(listed.at("rows")[0].dump(), HasSubstr("\"install\""));
}

TEST_F(InstallClient, LeavesNothingWhenItIsRemoved) {
    const std::string before = tables();
    changed(i1 + " install_config=/config");
    EXPECT_EQ(changed("client/remove hostname=i1"), "yes");
    EXPECT_EQ(tables(), before);
    EXPECT_TRUE(fs::exists("/cd/usr"));
    EXPECT_FALSE(fs::exists("/var/lib/hostadm/common_shares"));
}

TEST_F(InstallClient, LeavesTheHierarchySharedForOthers) {
    changed(i1);
    changed(i2);
    changed("client/remove hostname=i1 purge=yes");
    EXPECT_THAT(content("/etc/dfs/sharetab"), HasSubstr("/cd  ro"));
    EXPECT_TRUE(fs::exists("/cd/usr")) << "what it is installed from is not its own";
    changed("client/remove hostname=i2 purge=yes");
    EXPECT_THAT(content("/etc/dfs/sharetab"), Not(HasSubstr("/cd")));
}

TEST_F(InstallClient, LeavesAShareThatWasThereBefore) {
    write("/etc/dfs/sharetab", "-  /cd  ro  \"\"\n");
    write("/etc/dfs/dfstab", "share -F nfs -o ro /cd\n");
    const std::string before = tables();
    changed(i1);
    changed("client/remove hostname=i1");
    EXPECT_EQ(tables(), before);
}

TEST_F(InstallClient, IsRefusedWhatMakesNoSense) {
    expect_refused(i1 + " install_config=/nowhere", "/nowhere is no directory");
    expect_refused(i1 + " boot_program=/nowhere", "there is no boot program");
    expect_refused(
        "client/add_install hostname=i1 address=10.1.2.3 ethernet=8:0:20:a:b:c instruction_set=kel4 "
        "implementation_arch=kel4x os_name=Quorvel os_version=2.5 server=server1 install_hierarchy=/config",
        "is no install hierarchy");
    write("/etc/bootparams", "i1 root=server1:/export/root/i1\n");
    expect_refused(i1, "is a client already, with root=");
    write("/etc/bootparams", "i1 install=server1:/other\n");
    expect_refused(i1, "is a client already, with install=");
}

TEST_F(InstallClient, IsTakenBackWhenTheHierarchyCannotBeShared) {
    write("/complain-share", "");
    expect_refused(i1, "has been taken back");
}

TEST_F(InstallClient, IsTakenBackWhenATableCannotBeWritten) {
    fs::remove("/etc/ethers");
    fs::create_directory("/etc/ethers");
    expect_refused(i1, "/etc/ethers");
    fs::remove("/etc/ethers");
}

TEST_F(InstallClient, GoesOnBeingRemovedByTheNextRun) {
    const std::string before = tables();
    changed(i1);
    write("/complain-unshare", "");
    const Outcome run = hostadm("run client/remove hostname=i1");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("still there: the share of /cd"));
    fs::remove("/complain-unshare");
    changed("client/remove hostname=i1");
    EXPECT_EQ(tables(), before);
}

} // namespace
