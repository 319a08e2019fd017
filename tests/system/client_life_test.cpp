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

// ---- another one like it ----

const std::string copy_words =
    "client/copy hostname=c1 new_hostname=c2 address=10.1.2.4 ethernet=8:0:20:a:b:d";

TEST_F(ClientLife, ACopyIsAClientLikeTheOther) {
    write("/export/root/c1/etc/machine-id", "0123456789abcdef\n");
    fs::create_symlink("nowhere", "/export/root/c1/etc/link");
    changed("client/change hostname=c1 share_options=rw=c1,root=c1,anon=0");
    EXPECT_EQ(changed(copy_words), "yes");
    EXPECT_THAT(content("/etc/bootparams"),
                HasSubstr("\nc2 root=server1:/export/root/c2 swap=server1:/export/swap/c2/swap boottype=:di "
                          "swapsize=:1\n"));
    EXPECT_THAT(content("/etc/hosts"), HasSubstr("10.1.2.4\tc2\n"));
    EXPECT_THAT(content("/etc/ethers"), HasSubstr("08:00:20:0a:0b:0d\tc2\n"));
    EXPECT_THAT(content("/etc/dfs/sharetab"), AllOf(HasSubstr("/export/root/c2  rw=c2,root=c2,anon=0"),
                                                    HasSubstr("/export/swap/c2  rw=c2,root=c2,anon=0")));
    EXPECT_EQ(fs::read_symlink("/tftpboot/0A010204"), "inetboot.kel4m.Quorvel_2.5");
    EXPECT_EQ(fs::file_size("/export/swap/c2/swap"), 1U << 20U);
    EXPECT_EQ(content("/export/root/c2/etc/nodename"), "c2\n");
    EXPECT_THAT(content("/export/root/c2/etc/hosts"), HasSubstr("10.1.2.4  c2 c2.lab # me"));
    EXPECT_THAT(content("/export/root/c2/etc/vfstab"), HasSubstr("server1:/export/root/c2 - / "));
    EXPECT_EQ(content("/export/root/c2/etc/machine-id"), "");
    EXPECT_EQ(fs::read_symlink("/export/root/c2/etc/link"), "nowhere");
    EXPECT_EQ(content("/export/root/c1/etc/nodename"), "c1\n");
    EXPECT_EQ(answer("client/show hostname=c2").at("outputs").at("boot_links"), "yes");
    EXPECT_EQ(changed(copy_words), "no");
}

TEST_F(ClientLife, NothingOutsideTheRootIsCopied) {
    write("/secret/file", "the server's own");
    fs::remove_all("/export/root/c1/usr/share");
    fs::create_symlink("/secret", "/export/root/c1/usr/share");
    fs::create_symlink("/secret/file", "/export/root/c1/etc/motd");
    EXPECT_EQ(changed(copy_words), "yes");
    EXPECT_EQ(fs::read_symlink("/export/root/c2/etc/motd"), "/secret/file");
    EXPECT_EQ(fs::read_symlink("/export/root/c2/usr/share"), "/secret");
}

TEST_F(ClientLife, RemovedItsCopyLeavesEverythingAsItWas) {
    const std::string before = whole();
    EXPECT_EQ(changed(copy_words), "yes");
    EXPECT_EQ(changed("client/remove hostname=c2 purge=yes"), "yes");
    EXPECT_EQ(whole(), before);
    EXPECT_FALSE(fs::exists("/export/root/c2"));
}

TEST_F(ClientLife, ACopyThatFailsIsTakenBackWhole) {
    write("/complain-share-export-root-c2", "");
    const std::string before = whole();
    const Outcome run = hostadm("run " + copy_words);
    fs::remove("/complain-share-export-root-c2");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("everything that was done for c2 has been taken back"));
    EXPECT_EQ(whole(), before);
    EXPECT_FALSE(fs::exists("/export/root/c2"));
    EXPECT_FALSE(fs::exists("/export/swap/c2"));
}

TEST_F(ClientLife, ACopyThatMeetsAnotherClientNamesIt) {
    added("c2", "10.1.2.4", "8:0:20:a:b:d");
    changed("client/disable hostname=c2");
    const std::string before = whole();
    for (const auto &[words, named] :
         {std::pair("new_hostname=c3 address=10.1.2.4 ethernet=8:0:20:a:b:e", "10.1.2.4 belongs to c2"),
          {"new_hostname=c3 address=10.1.2.5 ethernet=8:0:20:a:b:d", "belongs to c2"},
          {"new_hostname=c2 address=10.1.2.5 ethernet=8:0:20:a:b:e", "c2"}}) {
        const Outcome run = hostadm(std::string("run client/copy hostname=c1 ") + words);
        EXPECT_EQ(run.status, 1) << words << run.output;
        EXPECT_THAT(run.output, HasSubstr(named));
    }
    EXPECT_EQ(
        hostadm("run client/copy hostname=nobody new_hostname=c3 address=10.1.2.5 ethernet=8:0:20:a:b:e")
            .status,
        1);
    EXPECT_EQ(whole(), before);
}

// ---- a root that is there already ----

TEST_F(ClientLife, ARootThatIsThereIsAdopted) {
    changed("client/remove hostname=c1");
    fs::remove("/tftpboot/inetboot.kel4m.Quorvel_2.5");
    const std::string before = tables();
    write("/export/root/c1/etc/mine", "mine");
    std::string words = "client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c" + identity;
    const Outcome foreign = hostadm("run " + words);
    EXPECT_EQ(foreign.status, 1);
    EXPECT_THAT(foreign.output, HasSubstr("take it as it is with root=adopt"));
    words.replace(words.find(" tree=/tree"), 11, "");
    EXPECT_EQ(changed(words + " root=adopt"), "yes");
    EXPECT_EQ(content("/export/root/c1/etc/mine"), "mine");
    EXPECT_EQ(content("/tftpboot/0A010203"), "boot program") << "which lay in the root";
    EXPECT_EQ(changed(words + " root=adopt"), "no");
    EXPECT_EQ(changed("client/remove hostname=c1"), "yes");
    EXPECT_EQ(tables(), before);
}

TEST_F(ClientLife, AnAdoptedRootStaysWhenTheRunFails) {
    changed("client/remove hostname=c1");
    write("/complain-share-export-root-c1", "");
    const std::string before = tables();
    const Outcome run =
        hostadm("run client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 "
                "server=server1 root=adopt");
    fs::remove("/complain-share-export-root-c1");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(content("/export/root/c1/etc/nodename"), "c1\n");
    EXPECT_EQ(tables(), before);
}

TEST_F(ClientLife, LinksInAnAdoptedRootLendItNoBootProgram) {
    changed("client/remove hostname=c1");
    fs::remove("/tftpboot/inetboot.kel4m.Quorvel_2.5");
    write("/secret/inetboot", "the server's own");
    fs::remove_all("/export/root/c1/usr/platform");
    fs::create_directories("/export/root/c1/usr/lib/fs/nfs");
    fs::create_symlink("/secret/inetboot", "/export/root/c1/usr/lib/fs/nfs/inetboot");
    const Outcome run =
        hostadm("run client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 "
                "server=server1 root=adopt");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("there is no boot program for kel4m"));
    EXPECT_FALSE(fs::exists("/tftpboot/inetboot.kel4m.Quorvel_2.5"));
}

TEST_F(ClientLife, WhatIsNoRootIsNotAdopted) {
    added("c2", "10.1.2.4", "8:0:20:a:b:d");
    changed("client/remove hostname=c1 purge=yes");
    fs::create_directories("/export/root/c1/etc");
    fs::create_directories("/export/root/empty");
    const std::string words = "run client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                              "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 "
                              "server=server1 root=adopt rootpath=";
    for (const auto &[path, said] : {std::pair("/export/root/c1", "it lacks usr"),
                                     {"/export/root/none", "no root /export/root/none to adopt"},
                                     {"/export/root/c2", "is the root of c2"},
                                     {"/export/root/c2/usr", "lies in the root of c2"}}) {
        const Outcome run = hostadm(words + path);
        EXPECT_EQ(run.status, 1) << path;
        EXPECT_THAT(run.output, HasSubstr(said));
    }
    EXPECT_EQ(hostadm(words + "/export/root/c1 tree=/tree").status, 2);
}

// ---- changes ----

TEST_F(ClientLife, EveryArgumentOfAChangeIsFollowedOnAnAdoptedRoot) {
    changed("client/remove hostname=c1");
    std::string words = "client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c" + identity;
    words.replace(words.find(" tree=/tree"), 11, " root=adopt");
    EXPECT_EQ(changed(words), "yes");
    write("/other/special.boot", "another program");
    const std::string change = "client/change hostname=c1 new_hostname=new address=10.1.2.9 "
                               "ethernet=8:0:20:a:b:ff server=server2 boot_program=/other/special.boot "
                               "swap_size=2m share_options=rw=new,root=new,anon=0";
    EXPECT_EQ(changed(change), "yes");
    EXPECT_EQ(links(), "0A010209->special.boot\n0A010209.KEL4M->special.boot\n");
    EXPECT_THAT(content("/etc/bootparams"),
                HasSubstr("new root=server2:/export/root/new swap=server2:/export/swap/new/swap boottype=:di "
                          "swapsize=:2\n"));
    EXPECT_THAT(content("/etc/dfs/dfstab"),
                AllOf(HasSubstr("rw=new,root=new,anon=0 /export/root/new"), Not(HasSubstr("c1"))));
    EXPECT_EQ(content("/export/root/new/etc/nodename"), "new\n");
    EXPECT_EQ(changed(change), "no");
}

TEST_F(ClientLife, OtherShareOptionsTakeTheirPlaceInBothTables) {
    EXPECT_EQ(changed("client/change hostname=c1 share_options=rw=c1,root=c1,anon=0"), "yes");
    EXPECT_THAT(content("/etc/dfs/sharetab"), AllOf(HasSubstr("/export/root/c1  rw=c1,root=c1,anon=0"),
                                                    HasSubstr("/export/swap/c1  rw=c1,root=c1,anon=0")));
    EXPECT_THAT(content("/etc/dfs/dfstab"), Not(HasSubstr("root=c1 /")));
    EXPECT_EQ(changed("client/change hostname=c1 share_options=rw=c1,root=c1,anon=0"), "no");
    const std::string before = whole();
    for (const char *options : {"rw", "rw,root=c1", "root=c1", "rw=c1:c2,root=c1", "rw=c2"}) {
        const Outcome run = hostadm(std::string("run client/change hostname=c1 share_options=") + options);
        EXPECT_EQ(run.status, 2) << run.output;
        EXPECT_THAT(run.output, HasSubstr("to c1 and nobody else"));
    }
    EXPECT_EQ(whole(), before);
}

TEST_F(ClientLife, AChangeMeetsADisabledClientToo) {
    added("c2", "10.1.2.4", "8:0:20:a:b:d");
    changed("client/disable hostname=c2");
    const Outcome run = hostadm("run client/change hostname=c1 ethernet=8:0:20:a:b:d");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("belongs to c2"));
}

TEST_F(ClientLife, AChangeThatMeetsAnothersPathNamesIt) {
    added("c2", "10.1.2.4", "8:0:20:a:b:d", " rootpath=/export/root/new");
    const Outcome run = hostadm("run client/change hostname=c1 new_hostname=new");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("/export/root/new is there already, as the root of c2"));
}

TEST_F(ClientLife, WhatWasFilledInPartIsNeitherChangedNorCopied) {
    write("/var/lib/hostadm/filling", "/export/root/c1\tc1\n");
    for (const std::string &words : {std::string("client/change hostname=c1 address=10.1.2.9"), copy_words}) {
        const Outcome run = hostadm("run " + words);
        EXPECT_EQ(run.status, 1);
        EXPECT_THAT(run.output, AllOf(HasSubstr("filled only in part"), HasSubstr("(error 119)")));
    }
    fs::remove("/var/lib/hostadm/filling");
}

TEST_F(ClientLife, ANewAddressOfAKnownClientIsRefusedWithTheWayOn) {
    const Outcome run =
        hostadm("run client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:ee" + identity);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("client/change gives a client another"));
}

TEST_F(ClientLife, ThatBootsByRplTakesItsLinksToItsNewEthernetAddress) {
    added("r1", "10.1.2.9", "8:0:20:1:2:3", " boot=rpl");
    write("/other/special.boot", "another program");
    const std::string change =
        "client/change hostname=r1 ethernet=8:0:20:1:2:ff boot_program=/other/special.boot";
    EXPECT_EQ(changed(change), "yes");
    EXPECT_EQ(rpl_links(), "0800200102FF.hw.com->./smc.com\n0800200102FF.glue.com->./gluecode.com\n"
                           "0800200102FF.inetboot->special.boot\n");
    EXPECT_EQ(content("/rplboot/special.boot"), "another program");
    EXPECT_EQ(changed(change), "no");
}

// ---- kinds ----

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

const std::string dataless_words = "client/add_dataless hostname=d1 address=10.1.2.9 ethernet=8:0:20:a:b:e "
                                   "instruction_set=kel4 os_name=Quorvel os_version=2.5 server=server1 "
                                   "execpath=/export/exec/usr";

TEST_F(ClientLife, ADatalessClientHasItsExecutablesFromHere) {
    fs::create_directories("/export/exec/usr");
    const std::string before = tables();
    EXPECT_EQ(changed(dataless_words), "yes");
    EXPECT_THAT(content("/etc/bootparams"), HasSubstr("d1 exec=server1:/export/exec/usr boottype=:da\n"));
    EXPECT_THAT(content("/etc/dfs/dfstab"), HasSubstr("share -F nfs -o ro /export/exec/usr\n"));
    EXPECT_THAT(content("/etc/ethers"), HasSubstr("08:00:20:0a:0b:0e\td1\n"));
    EXPECT_EQ(answer("client/show hostname=d1").at("outputs").at("kind"), "dataless");
    EXPECT_EQ(changed(dataless_words), "no");
    EXPECT_EQ(changed("client/disable hostname=d1"), "yes");
    EXPECT_EQ(changed("client/enable hostname=d1"), "yes");
    EXPECT_EQ(changed("client/change hostname=d1 new_hostname=d2 address=10.1.2.8"), "yes");
    EXPECT_EQ(changed("client/remove hostname=d2"), "yes");
    EXPECT_EQ(tables(), before);
}

TEST_F(ClientLife, ExecutablesStaySharedAsLongAsADatalessClientMountsThem) {
    fs::create_directories("/export/exec/usr");
    EXPECT_EQ(changed(dataless_words), "yes");
    std::string second = dataless_words;
    second.replace(second.find("d1"), 2, "d2").replace(second.find("10.1.2.9"), 8, "10.1.2.8");
    second.replace(second.find("a:b:e"), 5, "a:b:f");
    EXPECT_EQ(changed(second), "yes");
    EXPECT_EQ(changed("client/remove hostname=d1"), "yes");
    EXPECT_THAT(content("/etc/dfs/dfstab"), HasSubstr("/export/exec/usr"));
    EXPECT_EQ(changed("client/remove hostname=d2"), "yes");
    EXPECT_THAT(content("/etc/dfs/dfstab"), Not(HasSubstr("/export/exec/usr")));
}

TEST_F(ClientLife, ADatalessClientThatCannotBeAddedLeavesNothing) {
    const std::string before = whole();
    std::string without_path = dataless_words;
    without_path.resize(without_path.find(" execpath"));
    for (const auto &[words, said] :
         {std::pair(dataless_words, "there is no directory /export/exec/usr"),
          {without_path, "this server keeps no executables of Quorvel 2.5 for kel4"},
          {without_path + " execpath=/export/root/c1/usr", "lies in the root of a client"},
          {without_path + " execpath=/export", "too near to the root"}}) {
        const Outcome run = hostadm("run " + words);
        EXPECT_EQ(run.status, 1) << words;
        EXPECT_THAT(run.output, HasSubstr(said));
    }
    EXPECT_EQ(whole(), before);
}

TEST_F(ClientLife, WhatAClientWasInstalledFromIsNoneOfItsOwn) {
    write("/export/install/etc/motd", "system");
    write("/etc/bootparams",
          "inst root=localhost:/export/install install=localhost:/export/install boottype=:in\n");
    write("/etc/dfs/dfstab", "share -F nfs -o ro /export/install\n");
    changed("client/disable hostname=inst");
    EXPECT_EQ(content("/etc/dfs/dfstab"), "share -F nfs -o ro /export/install\n");
    const Outcome removed = hostadm("run client/remove hostname=inst purge=yes");
    EXPECT_EQ(removed.status, 0) << removed.output;
    EXPECT_THAT(removed.output, HasSubstr("is what it was installed from"));
    EXPECT_EQ(content("/export/install/etc/motd"), "system");
    EXPECT_EQ(content("/etc/dfs/dfstab"), "share -F nfs -o ro /export/install\n");
    EXPECT_EQ(content("/etc/bootparams"), "");
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
