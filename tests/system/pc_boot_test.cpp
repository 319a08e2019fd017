// SPDX-License-Identifier: MIT
// What PCs boot by, made with GRUB's own files and served by the real DHCP server.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

#include "support/initramfs.hpp"
#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::hostadm;
using tests::Outcome;
using tests::write;

const std::string settings = "/etc/dnsmasq.d/hostadm.conf", tree = "/tftpboot/grub",
                  process_file = "/run/dnsmasq.pid", setup = "run netboot/setup_pc interface=net0";

bool is_installed(const char *path) {
    return access(path, X_OK) == 0;
}

int dhcp_process() {
    std::ifstream file(process_file);
    int id = 0;
    return file >> id && kill(id, 0) == 0 ? id : 0;
}

void end_dhcp() {
    if (const int id = dhcp_process(); id != 0)
        kill(id, SIGTERM);
    for (int i = 0; i < 500 && dhcp_process() != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    fs::remove(process_file);
}

void expect_done(const std::string &command, const std::string &changed) {
    const Outcome run = hostadm(command);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, ContainsRegex("changed +" + changed + "\n"));
}

void expect_failure(const std::string &command, const std::string &reason) {
    const Outcome run = hostadm(command);
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_THAT(run.output, HasSubstr(reason));
}

class PcBoot : public testing::Test {
protected:
    void SetUp() override {
        if (!is_installed("/usr/bin/grub-mknetdir") || !is_installed("/usr/sbin/dnsmasq"))
            GTEST_SKIP() << "needs grub-common, grub-pc-bin, grub-efi-amd64-bin and dnsmasq-base";
        standin::reset();
        end_dhcp();
        fs::remove_all("/tftpboot");
        fs::remove_all("/etc/dnsmasq.d");
        fs::remove("/etc/dnsmasq.conf");
        fs::remove("/etc/init.d/dnsmasq");
        write("/etc/hosts", "127.0.0.1 localhost\n10.1.2.1 server1\n");
        write("/etc/ethers", "");
        fs::create_directories("/var/lib/misc"); // for its leases
        ASSERT_EQ(std::system(
                      "ip link show net0 >/dev/null 2>&1 || { ip link add net0 type veth peer name net1 && "
                      "ip address add 10.1.2.1/24 dev net0 && ip link set net0 up && ip link set net1 up; }"),
                  0);
    }
    void TearDown() override { end_dhcp(); }

    // As Debian's package brings it.
    static void place_service(const std::string &script) {
        standin::place("/etc/init.d/dnsmasq");
        standin::place("/usr/sbin/service", {.script = script});
    }
};

const std::string restart_script = R"(read -r old <)" + process_file + R"( && kill "$old"
while [ -n "$old" ] && kill -0 "$old" 2>/dev/null; do sleep 0.05; done
exec /usr/sbin/dnsmasq --conf-dir=/etc/dnsmasq.d)";

TEST_F(PcBoot, IsMadeForBothKindsOfFirmware) {
    const Outcome run = hostadm(setup);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, ContainsRegex("boot loader +done +/tftpboot/grub for BIOS, UEFI"));
    EXPECT_THAT(run.output, ContainsRegex("network +unchanged +net0 10.1.2.0/255.255.255.0"));
    EXPECT_THAT(run.output, ContainsRegex("DHCP +done +dnsmasq was started"));
    EXPECT_GT(fs::file_size(tree + "/i386-pc/core.0"), 10'000u);
    EXPECT_GT(fs::file_size(tree + "/x86_64-efi/core.efi"), 10'000u);
    EXPECT_THAT(content(settings), HasSubstr("dhcp-range=10.1.2.0,static,255.255.255.0\n"));
    EXPECT_NE(dhcp_process(), 0);
    EXPECT_FALSE(fs::exists("/tftpboot/.grub.new"));
}

TEST_F(PcBoot, AgainChangesNothing) {
    expect_done(setup, "yes");
    const int process = dhcp_process();
    const Outcome run = hostadm(setup);
    EXPECT_THAT(run.output, HasSubstr("changed  no\n"));
    EXPECT_THAT(run.output, ContainsRegex("DHCP +unchanged +dnsmasq serves them"));
    EXPECT_EQ(dhcp_process(), process);
}

TEST_F(PcBoot, AnotherRouterMakesTheServiceReadItsSettingsAnew) {
    expect_done(setup, "yes");
    place_service(restart_script);
    const int before = dhcp_process();
    expect_done(setup + " router=10.1.2.254", "yes");
    EXPECT_THAT(content(settings), HasSubstr("dhcp-option=tag:net0,option:router,10.1.2.254\n"));
    EXPECT_NE(dhcp_process(), 0);
    EXPECT_NE(dhcp_process(), before);
    expect_done(setup + " router=10.1.2.254", "no");
}

TEST_F(PcBoot, SettingsThatWereNotReadAreReadInTheNextRun) {
    expect_done(setup, "yes");
    place_service(restart_script);
    const auto later = fs::file_time_type::clock::now() + std::chrono::seconds(5);
    fs::last_write_time(settings, later);
    const int before = dhcp_process();
    expect_done(setup, "yes");
    EXPECT_NE(dhcp_process(), before);
}

TEST_F(PcBoot, NewerGrubTakesThePlaceOfTheOld) {
    expect_done(setup, "yes");
    write(tree + "/i386-pc/normal.mod", "an older one");
    write(tree + "/grub.cfg-0A010203", "a client's\n");
    expect_done(setup, "yes");
    EXPECT_GT(fs::file_size(tree + "/i386-pc/normal.mod"), 1000u);
    EXPECT_EQ(content(tree + "/grub.cfg-0A010203"), "a client's\n");
    EXPECT_FALSE(fs::exists("/tftpboot/.grub.new"));
}

TEST_F(PcBoot, FirmwareThatGrubIsNotInstalledForIsTold) {
    fs::rename("/usr/lib/grub/x86_64-efi", "/usr/lib/grub/away");
    const Outcome run = hostadm(setup);
    fs::rename("/usr/lib/grub/away", "/usr/lib/grub/x86_64-efi");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output,
                ContainsRegex("UEFI +warning +PCs with UEFI are not served; install grub-efi-amd64-bin"));
    expect_done(setup, "yes");
    EXPECT_TRUE(fs::exists(tree + "/x86_64-efi/core.efi"));
}

TEST_F(PcBoot, SettingsOfTheAdministratorStayInForce) {
    write("/etc/dnsmasq.conf", "# names\nport=5300\n");
    expect_done(setup, "yes");
    EXPECT_THAT(content(settings), Not(HasSubstr("port=")));
    EXPECT_THAT(content(settings), Not(HasSubstr("interface=net0")));
}

TEST_F(PcBoot, IsTakenAwayWhole) {
    place_service(restart_script);
    expect_done(setup, "yes");
    write("/tftpboot/other", "stays");
    expect_done("run netboot/remove_pc", "yes");
    EXPECT_FALSE(fs::exists(settings));
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_TRUE(fs::exists("/tftpboot/other"));
    expect_done("run netboot/remove_pc", "no");
}

TEST_F(PcBoot, IsNotTakenAwayFromClients) {
    expect_done(setup, "yes");
    write(tree + "/grub.cfg-0A010203", "# pc1, written by hostadm\n");
    expect_failure("run netboot/remove_pc", "grub.cfg-0A010203");
    EXPECT_TRUE(fs::exists(settings));
}

TEST_F(PcBoot, PreviewChangesNothing) {
    const Outcome run = hostadm("preview netboot/setup_pc interface=net0");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("dhcp-range=10.1.2.0,static,255.255.255.0"));
    EXPECT_FALSE(fs::exists("/tftpboot"));
    EXPECT_FALSE(fs::exists(settings));
    EXPECT_EQ(dhcp_process(), 0);
}

TEST_F(PcBoot, NeedsAnInterfaceThatIsThere) {
    expect_failure("run netboot/setup_pc interface=net9", "the interface net9 is not there");
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(PcBoot, NeedsARouterThatPcsCanReach) {
    expect_failure(setup + " router=10.9.9.9", "lies in none of the networks");
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(PcBoot, NeedsTheDhcpServer) {
    fs::rename("/usr/sbin/dnsmasq", "/usr/sbin/dnsmasq.away");
    expect_failure(setup, "apt-get install dnsmasq");
    fs::rename("/usr/sbin/dnsmasq.away", "/usr/sbin/dnsmasq");
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(PcBoot, NeedsGrub) {
    fs::rename("/usr/bin/grub-mknetdir", "/usr/bin/grub-mknetdir.away");
    expect_failure(setup, "apt-get install grub-common grub-pc-bin grub-efi-amd64-bin");
    fs::rename("/usr/bin/grub-mknetdir.away", "/usr/bin/grub-mknetdir");
    EXPECT_FALSE(fs::exists(settings));
}

TEST_F(PcBoot, SettingsOfAnotherHandAreNotOverwritten) {
    write(settings, "port=53\n");
    expect_failure(setup, "was not written by this");
    EXPECT_EQ(content(settings), "port=53\n");
    EXPECT_FALSE(fs::exists(tree)); // what was made has been taken back
}

TEST_F(PcBoot, SettingsThatDoNotGoTogetherAreTakenBack) {
    write("/etc/dnsmasq.d/zz.conf", "no-such-word\n");
    expect_failure(setup, "dnsmasq does not accept these settings beside its other ones");
    EXPECT_FALSE(fs::exists(settings));
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(PcBoot, DhcpServerThatDoesNotStartIsToldWithItsWords) {
    place_service("echo 'failed to bind DHCP server socket: Address already in use' >&2; exit 2");
    expect_failure(setup, "failed to bind DHCP server socket: Address already in use");
    EXPECT_FALSE(fs::exists(settings));
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(PcBoot, ServerWithNewSettingsThatFailsGetsItsOldOnesBack) {
    expect_done(setup, "yes");
    const std::string before = content(settings);
    place_service("[ -e /failed ] || { : >/failed; exit 1; }\n" + restart_script);
    expect_failure(setup + " router=10.1.2.254", "dnsmasq does not start");
    EXPECT_EQ(content(settings), before);
    EXPECT_NE(dhcp_process(), 0);
    EXPECT_EQ(standin::calls("/usr/sbin/service").size(), 2u);
    EXPECT_TRUE(fs::exists(tree + "/i386-pc/core.0"));
}

TEST_F(PcBoot, FullDiskLeavesNothingHalfMade) {
    fs::create_directories("/tftpboot");
    ASSERT_EQ(mount("small", "/tftpboot", "tmpfs", 0, "size=2m,mode=0755"), 0);
    expect_failure(setup, "GRUB's network tree cannot be made");
    EXPECT_FALSE(fs::exists("/tftpboot/.grub.new"));
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_FALSE(fs::exists(settings));
    umount2("/tftpboot", MNT_DETACH);
}

// By the command line of the unit, with the privileges that it leaves.
TEST_F(PcBoot, IsServedByItsOwnServiceWithFewPrivileges) {
    expect_done(setup, "yes");
    end_dhcp();
    const std::string unit = UNITS "/hostadm-dnsmasq.service", id = "/run/hostadm-dnsmasq.pid";
    EXPECT_EQ(
        std::system(("caps=$(sed -n 's/^CapabilityBoundingSet=//p' " + unit +
                     " | tr A-Z a-z | sed 's/cap_/+/g; s/ /,/g'); [ -n \"$caps\" ] || exit 9\n"
                     "setpriv --bounding-set=-all,$caps --inh-caps=-all --no-new-privs $(sed -n "
                     "'s/^ExecStart=//p' " +
                     unit +
                     ") &\n"
                     "for i in $(seq 600); do [ ! -s " +
                     id +
                     " ] || break; sleep 0.05; done\n"
                     "kill -HUP $! && sleep 0.2 && grep -q ':0043 ' /proc/net/udp && kill $! && wait $!")
                        .c_str()),
        0);
    fs::remove(id);
}

// Its clients.

const std::string share_script = R"(
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
[ -f /complain ] && { echo "share: $1: no"; exit 1; }
echo "-  $1  $opts  \"\"" >>$tab)";
const std::string unshare_script = R"(
shift 2
sed -i "\\|  $1  |d" /etc/dfs/sharetab)";

const std::string system_folder = "/tftpboot/linux/Debian_12", menu = tree + "/grub.cfg-0A010203",
                  add_pc = "run client/add_diskless boot=pc hostname=pc1 address=10.1.2.3 "
                           "ethernet=52:54:0:a:b:c instruction_set=amd64 implementation_arch=pc "
                           "os_name=Debian os_version=12 server=server1 tree=/tree swap_size=1m ";

class PcClient : public PcBoot {
protected:
    void SetUp() override {
        PcBoot::SetUp();
        if (IsSkipped())
            return;
        for (const char *path : {"/export", "/tree", "/etc/dfs", "/etc/bootparams", "/complain"})
            fs::remove_all(path);
        fs::remove("/var/lib/hostadm/dhcp_told");
        standin::place("/usr/sbin/share", {.script = share_script});
        standin::place("/usr/sbin/unshare", {.script = unshare_script});
        for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd"}) {
            standin::place(daemon, {.stay = true});
            standin::start(daemon, "-a");
        }
        write("/etc/dfs/dfstab", "");
        write("/etc/dfs/sharetab", "");
        write("/tree/etc/debian_version", "12.9\n");
        write("/tree/usr/bin/true", "");
        for (const char *release : {"6.1.0-9-amd64", "6.1.0-10-amd64"}) {
            write(std::string("/tree/boot/vmlinuz-") + release, std::string("kernel ") + release);
            write(std::string("/tree/boot/initrd.img-") + release, std::string("initramfs ") + release);
        }
    }
    static std::string everything() {
        std::string all;
        for (const char *file :
             {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab", "/etc/dfs/sharetab"})
            all += content(file);
        for (const char *folder : {"/tftpboot", "/export"})
            if (fs::exists(folder))
                for (const auto &entry : fs::recursive_directory_iterator(folder))
                    all +=
                        entry.path().string() + (entry.is_regular_file() ? content(entry.path()) : "") + "\n";
        return all;
    }
};

TEST_F(PcClient, BootsTheNewestKernelOfItsTreeByAMenuOfItsOwn) {
    expect_done(setup + " router=10.1.2.254", "yes");
    const Outcome run = hostadm(add_pc + "kernel_words='console=ttyS0,115200 quiet'");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("boot_program  linux/Debian_12/vmlinuz\n"));
    EXPECT_EQ(content(menu),
              "# pc1, written by hostadm\n"
              "set timeout=0\n"
              "linux (tftp)/linux/Debian_12/vmlinuz boot=nfs nfsroot=10.1.2.1:/export/root/pc1 "
              "ip=10.1.2.3:10.1.2.1:10.1.2.254:255.255.255.0:pc1::off rw console=ttyS0,115200 quiet\n"
              "initrd (tftp)/linux/Debian_12/initrd.img\n"
              "boot\n");
    EXPECT_EQ(content(system_folder + "/vmlinuz"), "kernel 6.1.0-10-amd64");
    EXPECT_EQ(content(system_folder + "/initrd.img"), "initramfs 6.1.0-10-amd64");
    EXPECT_EQ(fs::status(system_folder + "/initrd.img").permissions(), fs::perms(0644));
    EXPECT_THAT(content("/etc/bootparams"), HasSubstr("pc1 root=server1:/export/root/pc1 swap="));
    EXPECT_THAT(content("/etc/bootparams"), HasSubstr("boottype=:pc"));
    EXPECT_FALSE(fs::exists("/tftpboot/0A010203"));
    EXPECT_THAT(run.output, Not(HasSubstr("reverse ARP")));
}

TEST_F(PcClient, IsToldToTheDhcpServerWhichGoesOnRunning) {
    expect_done(setup, "yes");
    const int process = dhcp_process();
    const Outcome run = hostadm(add_pc);
    EXPECT_THAT(run.output, ContainsRegex("DHCP +done +dnsmasq reads the tables"));
    for (const char *request : {"run client/disable hostname=pc1", "run client/enable hostname=pc1",
                                "run client/remove hostname=pc1 purge=yes"})
        EXPECT_THAT(hostadm(request).output, ContainsRegex("DHCP +done +dnsmasq reads the tables"))
            << request;
    EXPECT_EQ(dhcp_process(), process);
}

TEST_F(PcClient, AddedTwiceChangesNothingTheSecondTime) {
    expect_done(setup, "yes");
    expect_done(add_pc, "yes");
    const std::string before = everything();
    expect_done(add_pc, "no");
    EXPECT_EQ(everything(), before);
}

TEST_F(PcClient, MayMountByVersionFour) {
    expect_done(setup, "yes");
    expect_done(add_pc + "nfs=4", "yes");
    EXPECT_THAT(content(menu), HasSubstr("nfsroot=10.1.2.1:/export/root/pc1,nfsvers=4 "));
}

TEST_F(PcClient, IsRefusedAVersionOfNfsThatItsInitramfsLacks) {
    expect_done(setup, "yes");
    const std::string newest = "/tree/boot/initrd.img-6.1.0-10-amd64";
    write(newest, tests::initramfs(tests::debians_initramfs));
    const std::string before = everything();
    expect_failure(add_pc + "nfs=4", "the initramfs " + newest + " cannot mount a root by version 4 of NFS");
    EXPECT_EQ(everything(), before);
    expect_done(add_pc, "yes");
    write(newest, "one that is not loaded");
    expect_failure(add_pc + "nfs=4", "the initramfs " + system_folder + "/initrd.img cannot mount a root");
    auto able = tests::debians_initramfs;
    able.emplace_back("usr/bin/nfsmount.klibc", "klibc's");
    write(system_folder + "/initrd.img", tests::initramfs(able));
    expect_done(add_pc + "nfs=4", "yes");
    EXPECT_THAT(content(menu), HasSubstr(",nfsvers=4 "));
}

TEST_F(PcClient, IsAddedBeforeTheServerIsSetUpAndToldSo) {
    const Outcome run = hostadm(add_pc);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("PCs with BIOS cannot boot yet; run netboot/setup_pc once"));
    EXPECT_THAT(run.output, HasSubstr("dnsmasq does not run"));
    EXPECT_TRUE(fs::exists(menu));
}

TEST_F(PcClient, SharesItsKernelWithOthersOfItsSystem) {
    expect_done(add_pc, "yes");
    write("/tree/boot/vmlinuz-6.1.0-11-amd64", "kernel 6.1.0-11-amd64");
    write("/tree/boot/initrd.img-6.1.0-11-amd64", "initramfs 6.1.0-11-amd64");
    expect_done(
        "run client/add_diskless boot=pc hostname=pc2 address=10.1.2.4 ethernet=52:54:0:a:b:d "
        "instruction_set=amd64 implementation_arch=pc os_name=Debian os_version=12 server=server1 tree=/tree",
        "yes");
    EXPECT_EQ(content(system_folder + "/vmlinuz"), "kernel 6.1.0-10-amd64");
    expect_done("run client/remove hostname=pc1 purge=yes", "yes");
    EXPECT_EQ(content(system_folder + "/vmlinuz"), "kernel 6.1.0-10-amd64");
}

TEST_F(PcClient, NeedsAKernelInItsTree) {
    fs::remove_all("/tree/boot");
    const std::string before = everything();
    expect_failure(add_pc, "chroot /tree apt-get install linux-image-amd64");
    EXPECT_EQ(everything(), before);
}

TEST_F(PcClient, NeedsAnInitramfsForIt) {
    fs::remove("/tree/boot/initrd.img-6.1.0-10-amd64");
    const std::string before = everything();
    expect_failure(add_pc, "chroot /tree update-initramfs -c -k all");
    EXPECT_EQ(everything(), before);
}

TEST_F(PcClient, NeedsAnAddressInANetworkOfThisServer) {
    const std::string before = everything();
    std::string elsewhere = add_pc;
    elsewhere.replace(elsewhere.find("10.1.2.3"), 8, "10.9.9.9");
    expect_failure(elsewhere, "10.9.9.9");
    EXPECT_EQ(everything(), before);
}

TEST_F(PcClient, WordsThatTheMenuTellsItselfAreRefused) {
    for (const char *words : {"nfsroot=10.9.9.9:/x", "quiet ip=dhcp", "boot=local", "ro"}) {
        const Outcome run = hostadm(add_pc + "kernel_words='" + words + "'");
        EXPECT_EQ(run.status, 2) << run.output;
    }
    for (const char *words : {"a;b", "$x", "\"a", "a\\\nb", "{", "a|b", "#"}) {
        const Outcome run = hostadm(add_pc + "kernel_words='" + words + "'");
        EXPECT_EQ(run.status, 2) << words << run.output;
    }
    EXPECT_FALSE(fs::exists(menu));
}

TEST_F(PcClient, WordsForAKernelAreForPcsAlone) {
    std::string other = add_pc;
    other.replace(other.find("boot=pc"), 7, "nfs=4");
    EXPECT_EQ(hostadm(other).status, 2);
}

TEST_F(PcClient, OfWhichAStepFailsLeavesNothing) {
    expect_done(setup, "yes");
    write("/etc/bootparams", "");
    write("/export/root/.kept", "");
    write("/export/swap/.kept", "");
    const std::string before = everything();
    fs::create_directories("/tftpboot/linux");
    ASSERT_EQ(mount("small", "/tftpboot/linux", "tmpfs", 0, "size=4k,mode=0755"), 0);
    write("/tree/boot/initrd.img-6.1.0-10-amd64", std::string(100'000, 'x'));
    expect_failure(add_pc, "cannot copy");
    umount2("/tftpboot/linux", MNT_DETACH);
    fs::remove("/tftpboot/linux");
    EXPECT_EQ(everything(), before);
}

TEST_F(PcClient, IsToldInListsAsAPc) {
    expect_done(add_pc, "yes");
    EXPECT_THAT(hostadm("run client/list").output,
                ContainsRegex("pc1 +pc +10.1.2.3 .* pc +/export/root/pc1 +yes +yes"));
    const std::string shown = hostadm("run client/show hostname=pc1").output;
    EXPECT_THAT(shown, ContainsRegex("kind +pc\n"));
    EXPECT_THAT(shown, ContainsRegex("grub/grub.cfg-0A010203 +linux/Debian_12/vmlinuz +yes"));
    fs::remove(system_folder + "/initrd.img");
    EXPECT_THAT(hostadm("run client/list").output, HasSubstr("no kernel or initramfs in linux/Debian_12"));
    fs::remove(menu);
    EXPECT_THAT(hostadm("run client/list").output, ContainsRegex("/export/root/pc1 +no +yes"));
}

TEST_F(PcClient, ThatChangesTakesItsMenuAlong) {
    expect_done(add_pc + "kernel_words=quiet", "yes");
    expect_done("run client/change hostname=pc1 new_hostname=pc9 address=10.1.2.9", "yes");
    EXPECT_FALSE(fs::exists(menu));
    EXPECT_THAT(
        content(tree + "/grub.cfg-0A010209"),
        HasSubstr(
            "nfsroot=10.1.2.1:/export/root/pc9 ip=10.1.2.9:10.1.2.1::255.255.255.0:pc9::off rw quiet\n"));
    EXPECT_EQ(hostadm("run client/change hostname=pc9 boot_program=/tree/usr/bin/true").status, 2);
}

TEST_F(PcClient, WhoseChangeIsTakenBackHasASwapAreaOfTheOldSize) {
    expect_done(add_pc, "yes");
    const std::string swap = content("/export/swap/pc1/swap");
    write(tree + "/grub.cfg-0A010209/in-the-way", "");
    const Outcome run = hostadm("run client/change hostname=pc1 address=10.1.2.9 swap_size=2m");
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_THAT(run.output, HasSubstr("taken back"));
    EXPECT_TRUE(content("/export/swap/pc1/swap") == swap);
}

TEST_F(PcClient, IsCopiedWithItsKernelWords) {
    expect_done(add_pc + "kernel_words=quiet nfs=4", "yes");
    expect_done("run client/copy hostname=pc1 new_hostname=pc2 address=10.1.2.4 ethernet=52:54:0:a:b:d",
                "yes");
    EXPECT_THAT(content(tree + "/grub.cfg-0A010204"),
                HasSubstr("nfsroot=10.1.2.1:/export/root/pc2,nfsvers=4 "
                          "ip=10.1.2.4:10.1.2.1::255.255.255.0:pc2::off rw quiet\n"));
}

TEST_F(PcClient, IsRemovedWithItsMenu) {
    expect_done(add_pc, "yes");
    expect_done("run client/remove hostname=pc1 purge=yes", "yes");
    EXPECT_FALSE(fs::exists(menu));
    EXPECT_THAT(content("/etc/bootparams"), Not(HasSubstr("pc1")));
    EXPECT_FALSE(fs::exists("/export/root/pc1"));
}

TEST_F(PcClient, IsPreviewedWithoutBeingMade) {
    expect_done(setup, "yes");
    const std::string before = everything();
    std::string preview = add_pc;
    const Outcome run = hostadm(preview.replace(0, 3, "preview"));
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("grub.cfg-0A010203"));
    EXPECT_EQ(everything(), before);
}

// A tree with a shell, and an update-initramfs that writes down what it sees.
void make_tree_with(const std::string &update_initramfs) {
    for (const char *folder : {"dev", "proc", "run", "tmp", "bin", "etc", "usr/sbin"})
        fs::create_directories(std::string("/tree/") + folder);
    ASSERT_EQ(
        std::system("cp -L /bin/sh /tree/bin/sh && for library in $(ldd /bin/sh | grep -o '/[^ ]*'); do "
                    "mkdir -p /tree${library%/*} && cp -L $library /tree$library; done"),
        0);
    write("/tree/usr/sbin/update-initramfs", "#!/bin/sh\n" + update_initramfs);
    fs::permissions("/tree/usr/sbin/update-initramfs", fs::perms(0755));
}

const std::string add_service =
                      "run service/add os_name=Debian os_version=12 instruction_set=amd64 tree=/tree",
                  template_place = "/export/root/templates/Debian_12/root_12_amd64.all";

class PcService : public PcClient {
protected:
    void SetUp() override {
        PcClient::SetUp();
        fs::remove_all("/var/sadm/system/admin/services");
        fs::remove_all("/server-was-reached");
    }
};

TEST_F(PcService, MakesTheInitramfsOfItsTreeShutInThere) {
    make_tree_with(R"(
exec >"/boot/initrd.img-$3"
echo "mode $1"
while read -r line; do echo "$line"; done </etc/initramfs-tools/conf.d/hostadm
for process in /proc/[0-9]*; do echo "process"; done
[ -e /export ] && echo "sees this server"
: >/server-was-reached
: >/dev/null && echo "has a null device"
)");
    expect_done(add_service, "yes");
    const std::string made = content(template_place + "/boot/initrd.img-6.1.0-10-amd64");
    EXPECT_THAT(made, HasSubstr("mode -u\n"));
    EXPECT_THAT(made, HasSubstr("BOOT=nfs\nMODULES=most\nprocess\nhas a null device\n"));
    EXPECT_THAT(made, Not(HasSubstr("sees this server")));
    EXPECT_FALSE(fs::exists("/server-was-reached"));
    EXPECT_EQ(content("/tree/boot/initrd.img-6.1.0-10-amd64"),
              "initramfs 6.1.0-10-amd64"); // not of the service
    expect_done(add_service, "no");
}

TEST_F(PcService, WhoseInitramfsCannotBeMadeIsTakenBack) {
    make_tree_with("echo 'E: no space left for it' >&2; exit 3\n");
    expect_failure(add_service, "update-initramfs ended with status 3): E: no space left for it");
    EXPECT_FALSE(fs::exists(template_place));
}

TEST_F(PcService, IsNotBelievedThatItMadeAnInitramfs) {
    make_tree_with("exec >/boot/initrd.img-$3\n");
    expect_failure(add_service, "although update-initramfs did not complain");
}

TEST_F(PcService, WithoutAProgramForItKeepsTheInitramfsOfTheTree) {
    const Outcome run = hostadm(add_service);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, ContainsRegex("initramfs +warning"));
    EXPECT_EQ(content(template_place + "/boot/initrd.img-6.1.0-10-amd64"), "initramfs 6.1.0-10-amd64");
}

TEST_F(PcService, GivesPcsTheirKernelAndInitramfs) {
    make_tree_with("exec >/boot/initrd.img-$3\necho made here\n");
    expect_done(add_service, "yes");
    std::string add = add_pc;
    add.replace(add.find("tree=/tree"), 10, "");
    expect_done(add, "yes");
    EXPECT_EQ(content(system_folder + "/initrd.img"), "made here\n");
    EXPECT_EQ(content(system_folder + "/vmlinuz"), "kernel 6.1.0-10-amd64");
}

} // namespace
