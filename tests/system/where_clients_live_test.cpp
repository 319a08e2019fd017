// SPDX-License-Identifier: MIT
// A server with one network, 10.1.2.0/24: addresses that no client of it can have, and swap files that no client could
// use. What is refused has changed nothing.
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using tests::content;
using tests::hostadm;
using tests::Outcome;
using tests::write;

const std::string share_script = R"(
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
echo "-  $1  $opts  \"\"" >>$tab)";
const std::string unshare_script = R"(
shift 2
sed -i "\\|  $1  |d" /etc/dfs/sharetab)";

const std::string ethernet = " ethernet=8:0:20:a:b:c instruction_set=kel4 ";
const std::string system_words = ethernet + "implementation_arch=kel4m os_name=Quorvel os_version=2.5 ";

class OneNetwork : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        static const bool has_network =
            system("ip link add net0 type veth peer name net1 && ip address add 10.1.2.1/24 dev net0 && "
                   "ip link set net0 up") == 0;
        ASSERT_TRUE(has_network);
        standin::reset();
        standin::place("/usr/sbin/share", {.script = share_script});
        standin::place("/usr/sbin/unshare", {.script = unshare_script});
        for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
            standin::place(daemon, {.stay = true});
            standin::start(daemon, "-a");
        }
        for (const char *path : {"/export", "/tftpboot", "/tree", "/etc/dfs"})
            fs::remove_all(path);
        char own_name[256] = {};
        gethostname(own_name, sizeof own_name - 1);
        write("/etc/hosts", "127.0.0.1\tlocalhost\n10.1.2.1\t" + std::string(own_name) + " server1\n");
        write("/etc/ethers", "# ethers\n");
        write("/etc/bootparams", "# bootparams\n");
        write("/etc/dfs/dfstab", "# shares\n");
        write("/tree/etc/motd", "welcome\n");
        write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
        before_ = tables();
    }
    static std::string tables() {
        std::string all;
        for (const char *table : {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab"})
            all += content(table);
        return all;
    }
    static Outcome add(const std::string &address, const std::string &more = "") {
        return hostadm("run client/add_diskless hostname=c1 tree=/tree address=" + address + system_words +
                       more);
    }
    void expect_refused(const Outcome &run, const std::string &why) {
        EXPECT_NE(run.status, 0);
        EXPECT_THAT(run.output, HasSubstr(why));
        EXPECT_EQ(tables(), before_);
        EXPECT_FALSE(fs::exists("/export/root/c1"));
    }
    void expect_done(const Outcome &run) {
        EXPECT_EQ(run.status, 0) << run.output;
        before_ = tables();
    }
    std::string before_;
};

TEST_F(OneNetwork, HasNoClientWithTheAddressOfAllOfIt) {
    expect_refused(add("10.1.2.0"), "10.1.2.0 is the address of the network 10.1.2.0/24 of net0");
    expect_refused(add("10.1.2.255"), "10.1.2.255 is the broadcast address of the network 10.1.2.0/24");
    expect_refused(add("10.1.2.255", "server=server1"), "broadcast address");
    expect_refused(add("127.0.0.2"), "loopback");
    expect_refused(add("224.0.0.1"), "multicast");
    expect_done(add("10.1.2.3"));
}

TEST_F(OneNetwork, HasNoClientElsewhereUnlessThatKnowsTheServer) {
    expect_refused(add("10.9.9.9"), "10.9.9.9 is in no network of this server (10.1.2.0/24 of net0)");
    expect_refused(
        hostadm("run client/add_dataless hostname=c1 address=10.9.9.9 execpath=/tree os_name=Quorvel "
                "os_version=2.5" +
                ethernet),
        "is in no network of this server");
    expect_refused(
        hostadm("run client/add_install hostname=c1 address=10.9.9.9 install_hierarchy=/tree" + system_words),
        "is in no network of this server");
    expect_done(add("10.9.9.9", "server=server1"));
    const Outcome again = add("10.9.9.9", "server=server1");
    EXPECT_THAT(again.output, AllOf(HasSubstr("changed       no"), HasSubstr("no interface of this server")));
}

TEST_F(OneNetwork, KeepsItsClientsWhenTheyChangeTheirAddress) {
    expect_done(add("10.1.2.3"));
    const auto change = [](const std::string &words) {
        return hostadm("run client/change hostname=c1 " + words);
    };
    const auto stays = [&](const std::string &words, const std::string &why) {
        const Outcome run = change(words);
        EXPECT_NE(run.status, 0) << words;
        EXPECT_THAT(run.output, HasSubstr(why));
        EXPECT_EQ(tables(), before_);
    };
    stays("address=10.1.2.255", "broadcast address");
    stays("address=10.9.9.9", "is in no network of this server");
    stays("swap_size=1", "of no use");
    expect_done(change("address=10.1.2.4"));
    expect_done(change("address=10.9.9.9 server=server1"));
    expect_done(change("address=10.9.9.10")); // it was told another name of this server
    const Outcome copy =
        hostadm("run client/copy hostname=c1 new_hostname=c2 address=10.1.2.0 ethernet=8:0:20:a:b:d");
    EXPECT_THAT(copy.output, HasSubstr("the address of the network"));
    EXPECT_EQ(tables(), before_);
}

TEST_F(OneNetwork, NamesAnyHostButNoNetwork) {
    expect_refused(hostadm("run database/set_host address=10.1.2.255 hostname=h"), "broadcast address");
    expect_done(hostadm("run database/set_host address=10.9.9.9 hostname=h"));
    expect_done(hostadm("run database/set_host address=127.0.0.2 hostname=own"));
    expect_done(add("10.1.2.3"));
    EXPECT_THAT(hostadm("run database/set_host address=127.0.0.2 hostname=c1").output, HasSubstr("loopback"));
    EXPECT_EQ(tables(), before_);
}

TEST_F(OneNetwork, HasNoClientWithASwapFileThatIsOfNoUse) {
    expect_refused(add("10.1.2.3", "swap_size=1"), "a swap file of 1 bytes is of no use");
    expect_refused(add("10.1.2.3", "swap_size=39k"), "needs 40k at least");
    expect_done(add("10.1.2.3", "swap_size=40k"));
    EXPECT_EQ(add("10.1.2.3", "swap_size=40k").status, 0) << "it is there already";
}

TEST_F(OneNetwork, HasNoClientWithASwapFileLargerThanTheDisk) {
    fs::create_directories("/export/swap");
    ASSERT_EQ(mount("small", "/export/swap", "tmpfs", 0, "size=1m,mode=0755"), 0);
    expect_refused(add("10.1.2.3", "swap_size=2m"), "bytes that are free at /export/swap");
    expect_refused(add("10.1.2.3"), "bytes that are free at /export/swap"); // 32m, which nobody asked for
    expect_done(add("10.1.2.3", "swap_size=512k"));
    EXPECT_THAT(hostadm("run client/change hostname=c1 swap_size=2m").output,
                HasSubstr("larger than the 1048576 bytes that are free"));
    EXPECT_EQ(fs::file_size("/export/swap/c1/swap"), 512u << 10);
    expect_done(hostadm("run client/change hostname=c1 swap_size=1m"));
    umount2("/export/swap", MNT_DETACH);
}

} // namespace
