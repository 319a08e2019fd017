// SPDX-License-Identifier: MIT
// What becomes of a client after it was added: disabled and enabled, given another name or address, removed. Sharing is
// played by stand-ins.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::hostadm;
using tests::Outcome;
using tests::write;

const std::string share_script = R"(
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
[ -f /complain-share$(echo $1 | tr / -) ] && { echo "share: $1: no"; exit 1; }
echo "-  $1  $opts  \"\"" >>$tab)";
const std::string unshare_script = R"(
shift 2
sed -i "\\|  $1  |d" /etc/dfs/sharetab)";

const std::string identity = " instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5"
                             " server=server1 tree=/tree swap_size=1m";

class ClientLife : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        standin::reset();
        standin::place("/usr/sbin/share", {.script = share_script});
        standin::place("/usr/sbin/unshare", {.script = unshare_script});
        for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
            standin::place(daemon, {.stay = true});
            standin::start(daemon, "-a");
        }
        for (const char *path :
             {"/export", "/tftpboot", "/rplboot", "/tree", "/etc/dfs", "/complain-share-export-root-new"})
            fs::remove_all(path);
        write("/etc/hosts", "# hosts\n127.0.0.1\tlocalhost server1 server2\n");
        write("/tree/etc/hosts",
              "127.0.0.1 localhost\n10.1.2.3  c1 c1.lab # me\n10.1.2.1 server1\n10.1.2.30 c11\n");
        write("/tree/etc/nodename", "c1\n");
        write("/tree/etc/vfstab",
              "server1:/export/root/c1 - / nfs - no rw\nserver1:/export/c1x - /x nfs - no rw\n");
        write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
        for (const char *module : {"gluecode.com", "smc.com"})
            write(std::string("/tree/usr/platform/kel4m/lib/fs/nfs/") + module, module);
        write("/etc/dfs/dfstab", "# shares\n");
        write("/etc/ethers", "# ethers\n");
        write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
        write("/etc/dfs/sharetab", "");
        added("c1", "10.1.2.3", "8:0:20:a:b:c");
    }
    static void added(const std::string &name, const std::string &address, const std::string &ethernet,
                      const std::string &more = "") {
        const Outcome run = hostadm("run client/add_diskless hostname=" + name + " address=" + address +
                                    " ethernet=" + ethernet + identity + more);
        ASSERT_EQ(run.status, 0) << run.output;
    }
    static std::string tables() {
        return content("/etc/hosts") + content("/etc/ethers") + content("/etc/bootparams") +
               content("/etc/dfs/dfstab") + content("/etc/dfs/sharetab");
    }
    static std::string links() {
        std::string all;
        for (const char *link : {"0A010203", "0A010203.KEL4M", "0A010209", "0A010209.KEL4M"})
            if (const std::string path = std::string("/tftpboot/") + link; fs::is_symlink(path))
                all += std::string(link) + "->" + fs::read_symlink(path).string() + "\n";
        return all;
    }
    static std::string whole() {
        std::string all = tables() + links();
        for (const char *file : {"etc/hosts", "etc/nodename", "etc/vfstab"})
            all += content(std::string("/export/root/c1/") + file);
        return all + (fs::exists("/export/swap/c1/swap") ? "swap" : "");
    }
    static std::string rpl_links() {
        std::string all;
        for (const char *suffix : {".hw.com", ".glue.com", ".inetboot"})
            for (const char *key : {"080020010203", "0800200102FF"})
                if (const std::string path = std::string("/rplboot/") + key + suffix; fs::is_symlink(path))
                    all += std::string(key) + suffix + "->" + fs::read_symlink(path).string() + "\n";
        return all;
    }
    static nlohmann::json answer(const std::string &words) {
        const Outcome run = hostadm("run --json " + words + " 2>/dev/null");
        EXPECT_EQ(run.status, 0) << run.output;
        return nlohmann::json::parse(run.output, nullptr, false);
    }
    static std::string changed(const std::string &words) {
        return answer(words).at("outputs").value("changed", "nothing was said");
    }
};

TEST_F(ClientLife, DisabledItIsToldNoAddressAndMayMountNothing) {
    EXPECT_EQ(changed("client/disable hostname=c1"), "yes");
    EXPECT_THAT(content("/etc/ethers"), HasSubstr("\n# disabled by hostadm: 08:00:20:0a:0b:0c\tc1\n"));
    EXPECT_THAT(content("/etc/dfs/sharetab"), Not(HasSubstr("c1")));
    EXPECT_THAT(content("/etc/dfs/dfstab"), Not(HasSubstr("\nshare")));
    EXPECT_TRUE(fs::exists("/export/root/c1/etc/nodename"));
    EXPECT_TRUE(fs::exists("/export/swap/c1/swap"));
}

TEST_F(ClientLife, DisabledItIsToldInEveryList) {
    changed("client/disable hostname=c1");
    const auto list = answer("client/list");
    ASSERT_EQ(list.at("rows").size(), 1U);
    EXPECT_EQ(list.at("rows")[0].at("disabled"), "yes");
    EXPECT_EQ(list.at("rows")[0].at("ethernet"), "08:00:20:0a:0b:0c");
    EXPECT_EQ(answer("client/show hostname=c1").at("outputs").at("disabled"), "yes");
}

TEST_F(ClientLife, EnabledItsTablesAreByteForByteAsBefore) {
    const std::string before = tables();
    changed("client/disable hostname=c1");
    EXPECT_NE(tables(), before);
    EXPECT_EQ(changed("client/enable hostname=c1"), "yes");
    std::string now = tables();
    EXPECT_EQ(now, before);
    EXPECT_EQ(answer("client/list").at("rows")[0].at("disabled"), "no");
}

TEST_F(ClientLife, DisablingAndEnablingTwiceChangesNothingMore) {
    EXPECT_EQ(changed("client/enable hostname=c1"), "no");
    EXPECT_EQ(changed("client/disable hostname=c1"), "yes");
    const std::string disabled = tables();
    EXPECT_EQ(changed("client/disable hostname=c1"), "no");
    EXPECT_EQ(tables(), disabled);
}

TEST_F(ClientLife, AnUnknownClientCannotBeDisabled) {
    const std::string before = tables();
    const Outcome run = hostadm("run client/disable hostname=nobody");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("there is no client nobody"));
    EXPECT_EQ(tables(), before);
}

TEST_F(ClientLife, ADisabledClientIsNotAddedOnceMore) {
    changed("client/disable hostname=c1");
    const Outcome run =
        hostadm("run client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c" + identity);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("client/enable lets it boot again"));
}

TEST_F(ClientLife, ADisabledClientIsRemovedWhole) {
    changed("client/disable hostname=c1");
    EXPECT_EQ(changed("client/remove hostname=c1 purge=yes"), "yes");
    EXPECT_THAT(tables(), Not(HasSubstr("c1")));
    EXPECT_EQ(links(), "");
    EXPECT_FALSE(fs::exists("/export/root/c1"));
}

TEST_F(ClientLife, AnotherAddressIsFollowedEverywhere) {
    EXPECT_EQ(changed("client/change hostname=c1 address=10.1.2.9"), "yes");
    EXPECT_THAT(content("/etc/hosts"), AllOf(HasSubstr("10.1.2.9\tc1\n"), Not(HasSubstr("10.1.2.3\t"))));
    EXPECT_EQ(links(), "0A010209->inetboot.kel4m.Quorvel_2.5\n0A010209.KEL4M->inetboot.kel4m.Quorvel_2.5\n");
    EXPECT_THAT(content("/export/root/c1/etc/hosts"),
                AllOf(HasSubstr("10.1.2.9  c1 c1.lab # me"), HasSubstr("10.1.2.30 c11")));
    EXPECT_EQ(changed("client/change hostname=c1 address=10.1.2.9"), "no");
}

TEST_F(ClientLife, AnotherEthernetAddressTakesThePlaceOfTheOldOne) {
    EXPECT_EQ(changed("client/change hostname=c1 ethernet=8:0:20:a:b:ff"), "yes");
    EXPECT_EQ(content("/etc/ethers"), "# ethers\n08:00:20:0a:0b:ff\tc1\n");
    EXPECT_EQ(changed("client/change hostname=c1 ethernet=8:0:20:a:b:ff"), "no");
}

TEST_F(ClientLife, AnotherNameIsFollowedEverywhere) {
    EXPECT_EQ(changed("client/change hostname=c1 new_hostname=new"), "yes");
    EXPECT_THAT(content("/etc/hosts"), HasSubstr("10.1.2.3\tnew\n"));
    EXPECT_EQ(content("/etc/ethers"), "# ethers\n08:00:20:0a:0b:0c\tnew\n");
    EXPECT_THAT(content("/etc/bootparams"),
                HasSubstr("\nnew root=server1:/export/root/new swap=server1:/export/swap/new/swap "
                          "boottype=:di swapsize=:1\n"));
    EXPECT_THAT(content("/etc/dfs/sharetab"),
                AllOf(HasSubstr("/export/root/new  rw=new,root=new"),
                      HasSubstr("/export/swap/new  rw=new,root=new"), Not(HasSubstr("c1"))));
    EXPECT_THAT(content("/etc/dfs/dfstab"), AllOf(HasSubstr("rw=new,root=new"), Not(HasSubstr("c1"))));
    EXPECT_EQ(content("/export/root/new/etc/nodename"), "new\n");
    EXPECT_THAT(content("/export/root/new/etc/hosts"), HasSubstr("10.1.2.3  new new.lab # me\n"));
    EXPECT_THAT(content("/export/root/new/etc/vfstab"),
                AllOf(HasSubstr("server1:/export/root/new - / "), HasSubstr("server1:/export/c1x - /x")));
    EXPECT_TRUE(fs::exists("/export/swap/new/swap"));
    EXPECT_FALSE(fs::exists("/export/root/c1"));
    EXPECT_EQ(changed("client/change hostname=c1 new_hostname=new"), "no");
}

TEST_F(ClientLife, ASwapFileInItsRootGoesWithItsRoot) {
    const Outcome run = hostadm("run client/add_diskless hostname=c2 address=10.1.2.4 ethernet=8:0:20:a:b:d"
                                " swappath=/export/root/c2/var/c2/swap" +
                                identity);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(changed("client/change hostname=c2 new_hostname=new swap_size=2m"), "yes");
    EXPECT_THAT(content("/etc/bootparams"),
                HasSubstr("\nnew root=server1:/export/root/new swap=server1:/export/root/new/var/c2/swap "));
    EXPECT_EQ(fs::file_size("/export/root/new/var/c2/swap"), 2U << 20U);
}

TEST_F(ClientLife, AFailedChangeIsTakenBackWhole) {
    write("/complain-share-export-root-new", "");
    const std::string before = whole();
    const Outcome run =
        hostadm("run client/change hostname=c1 new_hostname=new address=10.1.2.9 swap_size=2m");
    fs::remove("/complain-share-export-root-new");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, AllOf(HasSubstr("everything that was done for c1 has been taken back"),
                                  Not(HasSubstr("left half done"))));
    // A share that was made anew stands behind the others.
    EXPECT_EQ(whole().size(), before.size());
    EXPECT_THAT(content("/etc/dfs/sharetab"), HasSubstr("/export/root/c1  rw=c1,root=c1"));
    EXPECT_EQ(fs::file_size("/export/swap/c1/swap"), 1U << 20U);
}

TEST_F(ClientLife, AChangeThatMeetsAnotherClientNamesIt) {
    added("c2", "10.1.2.4", "8:0:20:a:b:d");
    const std::string before = whole();
    for (const auto &[words, named] : {std::pair("new_hostname=c2", "c2 is a client already"),
                                       {"address=10.1.2.4", "10.1.2.4 belongs to c2"},
                                       {"ethernet=8:0:20:a:b:d", "belongs to c2"}}) {
        const Outcome run = hostadm(std::string("run client/change hostname=c1 ") + words);
        EXPECT_EQ(run.status, 1) << words;
        EXPECT_THAT(run.output, HasSubstr(named));
    }
    EXPECT_EQ(whole(), before);
}

TEST_F(ClientLife, WhatCanBeNobodysIsRefused) {
    const std::string before = whole();
    for (const char *words : {"", "address=127.0.0.5", "address=224.0.0.1", "ethernet=ff:ff:ff:ff:ff:ff",
                              "swap_size=0", "new_hostname=a/b"}) {
        const Outcome run = hostadm(std::string("run client/change hostname=c1 ") + words);
        EXPECT_EQ(run.status, 2) << words << run.output;
    }
    EXPECT_EQ(whole(), before);
}

TEST_F(ClientLife, AnotherSwapSizeAndServerNameAreFollowed) {
    EXPECT_EQ(changed("client/change hostname=c1 swap_size=2m server=server2"), "yes");
    EXPECT_EQ(fs::file_size("/export/swap/c1/swap"), 2U << 20U);
    EXPECT_THAT(
        content("/etc/bootparams"),
        HasSubstr(
            "c1 root=server2:/export/root/c1 swap=server2:/export/swap/c1/swap boottype=:di swapsize=:2\n"));
    EXPECT_THAT(content("/export/root/c1/etc/vfstab"), HasSubstr("server2:/export/root/c1 - / "));
    EXPECT_EQ(changed("client/change hostname=c1 swap_size=2m server=server2"), "no");
}

TEST_F(ClientLife, AnotherBootProgramIsWhatItsLinksLeadTo) {
    write("/other/special.boot", "another program");
    EXPECT_EQ(changed("client/change hostname=c1 boot_program=/other/special.boot"), "yes");
    EXPECT_EQ(links(), "0A010203->special.boot\n0A010203.KEL4M->special.boot\n");
    EXPECT_EQ(content("/tftpboot/special.boot"), "another program");
    EXPECT_EQ(answer("client/show hostname=c1").at("outputs").at("architecture"), "kel4m");
    EXPECT_EQ(changed("client/change hostname=c1 boot_program=/other/special.boot"), "no");
}

TEST_F(ClientLife, EveryListTellsItsKind) {
    write("/etc/bootparams",
          content("/etc/bootparams") +
              "inst install=localhost:/export/install install_config=localhost:/export/conf "
              "boottype=:in\ndata exec=localhost:/export/exec boottype=:da\n"
              "strange exec=elsewhere:/export/exec boottype=:da\n");
    const auto rows = answer("client/list").at("rows");
    ASSERT_EQ(rows.size(), 3U) << rows;
    EXPECT_EQ(rows[0].at("kind"), "diskless");
    EXPECT_EQ(rows[1].at("name"), "inst");
    EXPECT_EQ(rows[1].at("kind"), "install");
    EXPECT_EQ(rows[1].at("root"), "/export/install");
    EXPECT_EQ(rows[2].at("kind"), "dataless");
    EXPECT_EQ(answer("client/show hostname=inst").at("outputs").at("kind"), "install");
    const Outcome status = hostadm("status --json");
    const auto clients = nlohmann::json::parse(status.output, nullptr, false).at("clients");
    ASSERT_EQ(clients.size(), 3U) << status.output;
    EXPECT_EQ(clients[1].at("kind"), "install");
    EXPECT_EQ(clients[0].at("disabled"), "no");
    changed("client/disable hostname=c1");
    EXPECT_EQ(nlohmann::json::parse(hostadm("status --json").output).at("clients")[0].at("disabled"), "yes");
}

const std::string rpl_links_of_r1 = "080020010203.hw.com->./smc.com\n080020010203.glue.com->./gluecode.com\n"
                                    "080020010203.inetboot->inetboot.kel4m.Quorvel_2.5\n";

TEST_F(ClientLife, ThatBootsByRplHasItsLinksInTheOtherArea) {
    added("r1", "10.1.2.9", "8:0:20:1:2:3", " boot=rpl");
    EXPECT_EQ(rpl_links(), rpl_links_of_r1);
    EXPECT_THAT(links(), Not(HasSubstr("0A010209")));
    EXPECT_EQ(content("/rplboot/080020010203.inetboot"), "boot program");
    EXPECT_EQ(content("/rplboot/smc.com"), "smc.com");
    EXPECT_THAT(content("/etc/bootparams"), HasSubstr("swap/r1/swap boottype=:rp swapsize=:1\n"));
    const auto shown = answer("client/show hostname=r1").at("outputs");
    EXPECT_EQ(shown.at("kind"), "rpl");
    EXPECT_EQ(shown.at("boot_links"), "yes");
    EXPECT_EQ(shown.at("architecture"), "kel4m");
    EXPECT_EQ(
        changed("client/add_diskless hostname=r1 address=10.1.2.9 ethernet=8:0:20:1:2:3 boot=rpl" + identity),
        "no");
    EXPECT_THAT(hostadm("status").output, HasSubstr("rpld"));
}

TEST_F(ClientLife, ThatBootsByRplIsRemovedWhole) {
    const std::string before = tables();
    added("r1", "10.1.2.9", "8:0:20:1:2:3", " boot=rpl");
    EXPECT_EQ(changed("client/remove hostname=r1 purge=yes"), "yes");
    EXPECT_EQ(rpl_links(), "");
    EXPECT_EQ(tables(), before);
}

TEST_F(ClientLife, WithoutItsRplModulesItIsNotAdded) {
    fs::remove("/tree/usr/platform/kel4m/lib/fs/nfs/smc.com");
    const std::string before = whole();
    const Outcome run = hostadm("run client/add_diskless hostname=r1 address=10.1.2.9 ethernet=8:0:20:1:2:3" +
                                identity + " boot=rpl");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("there is no smc.com to make /rplboot/smc.com of; looked for "));
    EXPECT_EQ(whole(), before);
    EXPECT_FALSE(fs::exists("/export/root/r1"));
}

TEST_F(ClientLife, AFailureTakesItsRplLinksAway) {
    fs::create_directories("/rplboot/080020010203.inetboot/in-the-way");
    const Outcome run = hostadm("run client/add_diskless hostname=r1 address=10.1.2.9 ethernet=8:0:20:1:2:3" +
                                identity + " boot=rpl");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, AllOf(HasSubstr("/rplboot/080020010203.inetboot is no link"),
                                  HasSubstr("everything that was done for r1 has been taken back")));
    EXPECT_EQ(rpl_links(), "");
    EXPECT_FALSE(fs::exists("/rplboot/smc.com"));
    EXPECT_FALSE(fs::exists("/export/root/r1"));
}

TEST_F(ClientLife, OfAnotherKindItIsNotAddedOnceMore) {
    const Outcome run = hostadm("run client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c" +
                                identity + " boot=rpl");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("c1 is a client already, of the kind diskless"));
}

TEST_F(ClientLife, LinksInItsRootLeadNoChangeOutOfIt) {
    write("/server-file", "c1 10.1.2.3\n");
    fs::remove("/export/root/c1/etc/nodename");
    fs::create_symlink("/server-file", "/export/root/c1/etc/nodename");
    hostadm("run client/change hostname=c1 address=10.1.2.9 new_hostname=new");
    EXPECT_EQ(content("/server-file"), "c1 10.1.2.3\n");
}

} // namespace
