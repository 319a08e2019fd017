// SPDX-License-Identifier: MIT
// Each check by itself: silent where everything is right, and finding what is broken.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/sysmacros.h>

#include "checks/good_snapshot.hpp"
#include "server/adapters.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"
#include "server/pc_area.hpp"
#include "support/initramfs.hpp"

using namespace hostadm::server;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::GoodServer;

namespace {

namespace fs = std::filesystem;

struct Fault {
    const char *check, *title;
    std::function<void(GoodServer &)> seed;
    const char *says;
};

void PrintTo(const Fault &fault, std::ostream *stream) {
    *stream << fault.title;
}

const std::string drop_everything =
    R"({"nftables":[{"chain":{"family":"inet","table":"fw","name":"in","type":"filter","hook":"input",)"
    R"("prio":0,"policy":"drop"}}]})";

// As much of a kernel's file as tells its release.
std::string kernel_of(const std::string &release) {
    std::string image(0x400, '\0');
    image.replace(0x202, 4, "HdrS");
    image.replace(0x20e, 2, std::string("\x40\x01", 2));
    return image.replace(0x340, release.size(), release);
}

PcMenu good_menu(const GoodServer &good) {
    return {.hostname = "client1",
            .address = "192.168.1.10",
            .netmask = "255.255.255.0",
            .router = {},
            .server_address = "192.168.1.1",
            .root = good.root,
            .system = "Debian_12",
            .extra_words = {}};
}

void make_rpl_client(GoodServer &good) {
    good.set_bootparams("client1 root=server:" + good.root + " boottype=:rp\n");
    good.snapshot.rpl_area = good.folder.path("rplboot");
    for (const auto &[link, program] : {std::pair("080020AABB01.hw.com", "smc.com"),
                                        {"080020AABB01.glue.com", "gluecode.com"},
                                        {"080020AABB01.inetboot", "inetboot.i86pc.Quorvel_2.5"}}) {
        good.folder.write(std::string("rplboot/") + program, "a program");
        fs::create_symlink(program, good.snapshot.rpl_area + "/" + link);
    }
    Daemon daemon;
    daemon.process.pid = 106;
    daemon.program = daemon.process.short_name = "rpld";
    daemon.process.arguments = {"rpld"};
    good.snapshot.daemons.daemons.push_back(std::move(daemon));
}

void make_pc_client(GoodServer &good) {
    good.set_bootparams("client1 root=server:" + good.root + " boottype=:pc\n");
    for (const char *core :
         {"i386-pc/core.0", "i386-pc/normal.mod", "x86_64-efi/core.efi", "x86_64-efi/normal.mod"})
        good.folder.write(std::string("tftpboot/grub/") + core, "a boot loader");
    for (const char *file : {"vmlinuz", "initrd.img"})
        good.folder.write(std::string("tftpboot/linux/Debian_12/") + file, kernel_of("6.1.0-10-amd64"));
    good.folder.write("export/root/client1/boot/vmlinuz-6.1.0-10-amd64", kernel_of("6.1.0-10-amd64"));
    good.folder.write("export/root/client1/boot/initrd.img-6.1.0-10-amd64", "an initramfs");
    good.folder.write("tftpboot/grub/grub.cfg-C0A8010A", pc_menu_text(good_menu(good)));
    good.snapshot.pc = {
        .settings_path = "/etc/dnsmasq.d/hostadm.conf", .settings = "port=53053\n", .process = 107};
    good.snapshot.daemons.sockets.push_back({Socket::Kind::udp, 0, 67, false, 0});
    for (const char *fs : {"C0A8010A", "C0A8010A.KEL4M"})
        std::filesystem::remove(good.area + "/" + fs);
    for (const char *daemon : {"in.rarpd", "rpc.bootparamd"})
        good.remove_daemon(daemon);
}

void change_menu(GoodServer &good, const std::function<void(PcMenu &)> &change) {
    make_pc_client(good);
    PcMenu menu = good_menu(good);
    change(menu);
    good.folder.write("tftpboot/grub/grub.cfg-C0A8010A", pc_menu_text(menu));
}

const std::vector<Fault> faults = {
    {"pc", "the settings of the DHCP server are gone",
     [](GoodServer &good) {
         make_pc_client(good);
         good.snapshot.pc.settings.clear();
     },
     "the settings of the DHCP server are missing"},
    {"pc", "the DHCP server does not run",
     [](GoodServer &good) {
         make_pc_client(good);
         good.snapshot.pc.process.reset();
         std::erase_if(good.snapshot.daemons.sockets, [](const Socket &socket) { return socket.port == 67; });
     },
     "dnsmasq: it does not run"},
    {"pc", "another program has the port of the DHCP server",
     [](GoodServer &good) {
         make_pc_client(good);
         good.snapshot.pc.process.reset();
     },
     "another program has its port 67"},
    {"pc", "the DHCP server has old settings",
     [](GoodServer &good) {
         make_pc_client(good);
         good.snapshot.pc.knows_settings = false;
     },
     "it was started before /etc/dnsmasq.d/hostadm.conf was changed"},
    {"pc", "the DHCP server has old tables",
     [](GoodServer &good) {
         make_pc_client(good);
         good.snapshot.pc.knows_tables = false;
     },
     "it has not read /etc/hosts and /etc/ethers since they were changed"},
    {"pc", "the DHCP server has no socket",
     [](GoodServer &good) {
         make_pc_client(good);
         std::erase_if(good.snapshot.daemons.sockets, [](const Socket &socket) { return socket.port == 67; });
         good.snapshot.daemons.sockets_known = true;
     },
     "it has no socket for DHCP"},
    {"pc", "the boot loader for UEFI is gone",
     [](GoodServer &good) {
         make_pc_client(good);
         fs::remove(good.area + "/grub/x86_64-efi/core.efi");
     },
     "PCs with UEFI is missing"},
    {"pc", "the boot loader for BIOS has lost its modules",
     [](GoodServer &good) {
         make_pc_client(good);
         fs::remove(good.area + "/grub/i386-pc/normal.mod");
     },
     "PCs with BIOS is missing"},
    {"pc", "the menu is gone",
     [](GoodServer &good) {
         make_pc_client(good);
         fs::remove(good.area + "/grub/grub.cfg-C0A8010A");
     },
     "the menu is missing"},
    {"pc", "the menu is of another hand",
     [](GoodServer &good) {
         make_pc_client(good);
         good.folder.write("tftpboot/grub/grub.cfg-C0A8010A", "linux /vmlinuz root=/dev/sda1\n");
     },
     "the menu is of another hand"},
    {"pc", "the menu names another root",
     [](GoodServer &good) { change_menu(good, [](PcMenu &menu) { menu.root = "/export/root/other"; }); },
     "the menu names the root /export/root/other"},
    {"pc", "the menu names another server",
     [](GoodServer &good) { change_menu(good, [](PcMenu &menu) { menu.server_address = "192.168.1.7"; }); },
     "the menu names the server 192.168.1.7"},
    {"pc", "the menu tells another address",
     [](GoodServer &good) { change_menu(good, [](PcMenu &menu) { menu.address = "192.168.1.11"; }); },
     "the menu tells it the address 192.168.1.11, not 192.168.1.10"},
    {"pc", "the kernel is gone",
     [](GoodServer &good) {
         make_pc_client(good);
         fs::remove(good.area + "/linux/Debian_12/vmlinuz");
     },
     "the kernel is missing or empty"},
    {"pc", "the initramfs is empty",
     [](GoodServer &good) {
         make_pc_client(good);
         good.folder.write("tftpboot/linux/Debian_12/initrd.img", "");
     },
     "the initramfs is missing or empty"},
    {"pc", "the initramfs was made for local disks",
     [](GoodServer &good) {
         make_pc_client(good);
         good.folder.write("tftpboot/linux/Debian_12/initrd.img",
                           tests::initramfs(tests::without(tests::debians_initramfs, "/fs/nfs/")));
     },
     "the initramfs has no NFS"},
    {"pc", "the menu asks for a version of NFS that the initramfs lacks",
     [](GoodServer &good) {
         change_menu(good, [](PcMenu &menu) { menu.nfs4 = true; });
         good.folder.write("tftpboot/linux/Debian_12/initrd.img", tests::initramfs(tests::debians_initramfs));
     },
     "the menu asks for version 4 of NFS"},
    {"pc", "the kernel is older than that of the root",
     [](GoodServer &good) {
         make_pc_client(good);
         good.folder.write("export/root/client1/boot/vmlinuz-6.1.0-11-amd64", kernel_of("6.1.0-11-amd64"));
     },
     "the kernel is 6.1.0-10-amd64, and the newest of its root 6.1.0-11-amd64"},
    {"hosts-table", "the client has no line",
     [](GoodServer &good) { good.set_hosts("192.168.1.1 server\n"); }, "client1 has no address"},
    {"hosts-table", "the client's address is another machine's as well",
     [](GoodServer &good) {
         good.set_hosts("192.168.1.1 server\n192.168.1.10 printer\n192.168.1.10 client1\n");
     },
     "belongs to printer as well"},
    {"ethers-table", "the client has no line", [](GoodServer &good) { good.set_ethers("# nobody\n"); },
     "no line for client1"},
    {"ethers-table", "the Ethernet address stands twice",
     [](GoodServer &good) { good.set_ethers("8:0:20:aa:bb:1 server\n08:00:20:aa:bb:01 client1\n"); },
     "stands twice"},
    {"name-service", "ethers are looked up elsewhere",
     [](GoodServer &good) { good.set_switch("hosts: files\nethers: nis\n"); }, "ethers are not looked up"},
    {"interfaces", "the interface is down",
     [](GoodServer &good) { good.snapshot.network.interfaces[1].flags = 0; }, "it is down"},
    {"interfaces", "no interface is in the client's network",
     [](GoodServer &good) { good.snapshot.network.interfaces[1].addresses.clear(); },
     "in the network of client1"},
    {"interfaces", "a route leads elsewhere",
     [](GoodServer &good) {
         good.snapshot.network.routes.add(0xc0a8010a, 0xffffffff, {"eth7", 0});
     },
     "leads to eth7"},
    {"interfaces", "what leaves is held up",
     [](GoodServer &good) {
         good.snapshot.network.throttled =
             parse_throttled("qdisc tbf 8001: dev srv0 root refcnt 2 rate 1Kbit burst 10b lat 80s\n");
     },
     "thrown away or held up"},
    {"interfaces", "there is no way back",
     [](GoodServer &good) { good.snapshot.live.way_to = [](std::uint32_t) {
                                return Way{ENETUNREACH, 0};
                            }; },
     "there is no way to 192.168.1.10"},
    {"reverse-arp", "the daemon does not run", [](GoodServer &good) { good.remove_daemon("in.rarpd"); },
     "in.rarpd"},
    {"reverse-arp", "the daemon has ended and is defunct",
     [](GoodServer &good) { good.daemon("in.rarpd").process.state = 'Z'; }, "is defunct"},
    {"reverse-arp", "the daemon serves another interface",
     [](GoodServer &good) {
         good.daemon("in.rarpd").process.arguments = {"in.rarpd", "eth7"};
     },
     "serves the interface eth7 only"},
    {"boot-area", "the link is gone", [](GoodServer &good) { fs::remove(good.area + "/C0A8010A"); },
     "there is no link C0A8010A"},
    {"boot-area", "the link leads to nothing",
     [](GoodServer &good) { fs::remove(good.area + "/inetboot.kel4m.Quorvel_2.5"); }, "is not there"},
    {"boot-area", "half a copy stands in place of the link",
     [](GoodServer &good) {
         fs::remove(good.area + "/C0A8010A");
         good.folder.write("tftpboot/C0A8010A", "a boot");
     },
     "a part of the boot program"},
    {"tftp", "the daemon does not run",
     [](GoodServer &good) {
         good.remove_daemon("in.tftpd");
         good.snapshot.daemons.sockets.clear();
     },
     "in.tftpd"},
    {"tftp", "the daemon serves without confining itself",
     [](GoodServer &good) { good.snapshot.tftp.confined = false; }, "without --secure"},
    {"tftp", "another program holds the port",
     [](GoodServer &good) {
         good.remove_daemon("in.tftpd");
         good.snapshot.tftp_question = TftpQuestion{"client1", "C0A8010A", 0xc0a80101, {}};
     },
     "does not hand out C0A8010A"},
    {"rpl", "the daemon does not run",
     [](GoodServer &good) {
         make_rpl_client(good);
         good.remove_daemon("rpld");
     },
     "rpld"},
    {"rpl", "a link is missing",
     [](GoodServer &good) {
         make_rpl_client(good);
         fs::remove(good.snapshot.rpl_area + "/080020AABB01.glue.com");
     },
     "the link is missing"},
    {"rpl", "a link leads to nothing",
     [](GoodServer &good) {
         make_rpl_client(good);
         fs::remove(good.snapshot.rpl_area + "/smc.com");
     },
     "which is not there"},
    {"port-mapper", "the daemon does not hand on broadcasts",
     [](GoodServer &good) {
         good.daemon("rpcbind").process.arguments = {"rpcbind", "-w"};
     },
     "without -r"},
    {"port-mapper", "the daemon does not run where PCs need it",
     [](GoodServer &good) {
         make_pc_client(good);
         good.remove_daemon("rpcbind");
     },
     "rpcbind"},
    {"port-mapper", "the daemon does not answer",
     [](GoodServer &good) { good.snapshot.rpc.mapper = RpcAnswers::Mapper::silent; }, "does not answer"},
    {"port-mapper", "the daemon may not answer this server itself",
     [](GoodServer &good) {
         good.snapshot.rpc.mapper = RpcAnswers::Mapper::refused;
         good.snapshot.denied_hosts = "ALL: ALL\n";
     },
     "turns this server itself away"},
    {"boot-parameter-daemon", "the daemon has lost its registration",
     [](GoodServer &good) { good.snapshot.rpc.registrations.clear(); }, "not registered"},
    {"boot-parameter-daemon", "the daemon hangs",
     [](GoodServer &good) {
         good.snapshot.live.null_procedure = [](std::uint32_t, std::uint32_t, bool, std::uint16_t) {
             return Answer::silent;
         };
     },
     "does not answer"},
    {"boot-parameter-daemon", "the router is each client itself",
     [](GoodServer &good) {
         good.daemon("rpc.bootparamd").process.arguments = {"rpc.bootparamd", "-r", "127.0.0.1"};
     },
     "each client itself"},
    {"bootparams", "the root has no server",
     [](GoodServer &good) { good.set_bootparams("client1 root=" + good.root + "\n"); }, "names no server"},
    {"bootparams", "two clients have one swap file by a hard link",
     [](GoodServer &good) {
         const std::string other = good.folder.path("swap2");
         fs::create_hard_link(good.swap, other);
         good.set_bootparams("client1 root=server:" + good.root + " swap=server:" + good.swap +
                             "\nclient2 root=server:/r2 swap=server:" + other + "\n");
     },
     "are the same, by a link"},
    {"bootparams", "what is to be installed is not there",
     [](GoodServer &good) {
         good.set_bootparams("client1 root=server:" + good.root + " install=server:/nowhere/at/all\n");
     },
     "is not there"},
    {"access-control", "TFTP is denied",
     [](GoodServer &good) { good.snapshot.denied_hosts = "in.tftpd: 192.168.1.0/255.255.255.0\n"; },
     "in.tftpd is denied to client1"},
    {"access-control", "TFTP is denied by an option of the allowing file",
     [](GoodServer &good) { good.snapshot.allowed_hosts = "in.tftpd: ALL: DENY\n"; },
     "/etc/hosts.allow:1: in.tftpd is denied"},
    {"packet-filter", "everything is dropped",
     [](GoodServer &good) { good.snapshot.filter = parse_packet_filter(drop_everything); },
     "the packet filter drops"},
    {"packet-filter", "everything is dropped after the next boot",
     [](GoodServer &good) { good.snapshot.filter_at_boot = parse_packet_filter(drop_everything); },
     "as it is loaded at boot, drops"},
    {"packet-filter", "iptables drops TFTP",
     [](GoodServer &good) {
         good.snapshot.filter = parse_packet_filter(
             "", {{"iptables-legacy", "*filter\n:INPUT ACCEPT [0:0]\n-A INPUT -i srv+ -p udp -m udp "
                                      "--dport 69 -m comment --comment \"no TFTP\" -j DROP\nCOMMIT\n"}});
     },
     "iptables-legacy -t filter"},
    {"nfs-server", "the server does not run", [](GoodServer &good) { good.remove_daemon("ganesha.nfsd"); },
     "ganesha.nfsd"},
    {"nfs-server", "its settings leave the clients' version out",
     [](GoodServer &good) { good.snapshot.exports.version3 = false; }, "leave version 3 of NFS out"},
    {"nfs-server", "it is bound to another address",
     [](GoodServer &good) { good.snapshot.exports.bound_to = "10.0.0.1"; }, "serves at 10.0.0.1 only"},
    {"shares", "the root is not shared",
     [](GoodServer &good) {
         good.snapshot.shares.erase(good.root);
         good.snapshot.exports.by_path.clear();
     },
     "the root of client1 is not shared"},
    {"shares", "the root is shared for reading only",
     [](GoodServer &good) { good.snapshot.shares[good.root] = "ro=client1,root=client1"; },
     "for reading only"},
    {"shares", "a line of the table is not understood",
     [](GoodServer &good) {
         good.snapshot.boot_shares.push_back({9, "", "", false, "no directory"});
     },
     "is not understood"},
    {"exports", "the server was told otherwise",
     [](GoodServer &good) { good.snapshot.exports.exports[0].clients[0].access.root = false; },
     "without root access"},
    {"exports", "the server was not told", [](GoodServer &good) { good.snapshot.exports.by_path.clear(); },
     "was not told to export it"},
    {"roots", "the root is missing", [](GoodServer &good) { fs::remove_all(good.root); }, "is missing"},
    {"roots", "there is no first process", [](GoodServer &good) { fs::remove(good.root + "/sbin/init"); },
     "there is no first process"},
    {"roots", "the first process lacks its interpreter",
     [](GoodServer &good) { fs::remove(good.root + "/bin/sh"); }, "needs /bin/sh"},
    {"roots", "the first process is text",
     [](GoodServer &good) { good.folder.write("export/root/client1/sbin/init", "exec /bin/sh\n"); },
     "is a text"},
    {"roots", "the first process holds zeros",
     [](GoodServer &good) { good.folder.write("export/root/client1/sbin/init", std::string(999, '\0')); },
     "nothing but zeros"},
    {"roots", "the first process is for another machine",
     [](GoodServer &good) {
         good.folder.write("export/root/client1/sbin/init", std::string("\x7f"
                                                                        "ELF\2\2") +
                                                                std::string(100, '\0'));
     },
     "for another machine"},
    {"roots", "the console is missing", [](GoodServer &good) { fs::create_directory(good.root + "/dev"); },
     "the console device is missing"},
    {"roots", "the mount table names another server's root",
     [](GoodServer &good) {
         good.folder.write("export/root/client1/etc/vfstab", "other:/export/root/x - / nfs - no rw\n");
     },
     "it mounts / from other:"},
    {"roots", "the mount table does not mount the root",
     [](GoodServer &good) {
         good.folder.write("export/root/client1/etc/vfstab", "/proc - /proc proc - no -\n");
     },
     "has no line for /"},
    {"roots", "the root is to be mounted as a disk",
     [](GoodServer &good) {
         good.folder.write("export/root/client1/etc/vfstab", "server:" + good.root + " - / ufs - no rw\n");
     },
     "of type ufs"},
    {"roots", "its hosts table does not have its server",
     [](GoodServer &good) { good.folder.write("export/root/client1/etc/hosts", "127.0.0.1 localhost\n"); },
     "does not have the server server"},
    {"roots", "its hosts table has another address for the client",
     [](GoodServer &good) {
         good.folder.write("export/root/client1/etc/hosts", "192.168.1.1 server\n192.168.1.99 client1\n");
     },
     "has the address 192.168.1.99 there"},
    {"broken-runs", "a change was cut off",
     [](GoodServer &good) {
         good.snapshot.broken_runs.push_back(
             {"/var/lib/hostadm/unfinished/a", "client/change", "client1", {}});
     },
     "client/change of client1 was cut off in the middle"},
    {"swap-files", "the swap file is missing", [](GoodServer &good) { fs::remove(good.swap); }, "is missing"},
    {"swap-files", "everybody may read the swap file",
     [](GoodServer &good) { fs::permissions(good.swap, fs::perms(0666)); }, "everybody may read"},
    {"reverse-arp", "a client without a boot program by TFTP gets no answer",
     [](GoodServer &good) {
         make_rpl_client(good);
         for (const char *link : {"C0A8010A", "C0A8010A.KEL4M"})
             fs::remove(good.area + "/" + link);
         good.daemon("in.rarpd").process.arguments = {"in.rarpd", "-a", "-b", good.area};
     },
     "none is laid out for client1"},
    {"disk-space", "the file system is full",
     [](GoodServer &good) {
         good.snapshot.live.room_at = [](const std::string &) { return Room{0, true, true}; };
     },
     "is full"},
    {"disk-space", "the file system has no inodes",
     [](GoodServer &good) {
         good.snapshot.live.room_at = [](const std::string &) { return Room{1 << 30, false, true}; };
     },
     "no inodes left"},
    {"disk-space", "the file system is mounted read-only",
     [](GoodServer &good) { good.snapshot.mounts[0].read_only = true; }, "read-only"},
    {"reboot", "a table is kept where it is emptied",
     [](GoodServer &good) { good.snapshot.hosts.file.path = good.folder.write("hosts", ""); },
     "which is emptied at boot"},
};

class EachFault : public testing::TestWithParam<Fault> {};

} // namespace

// The folder of a test lies where things are emptied at boot, which is no fault of this server.
TEST(GoodServer, NoCheckFindsAnything) {
    GoodServer good;
    for (const Check &check : all_checks()) {
        if (check.name == "reboot")
            good.snapshot.boot_area.path = "/usr";
        EXPECT_THAT(good.found_by(check.name), IsEmpty()) << check.name;
        if (check.name == "reboot")
            good.read_again();
    }
}

TEST(RplClient, NeedsNothingOfTheTftpArea) {
    GoodServer good;
    make_rpl_client(good);
    for (const char *link : {"C0A8010A", "C0A8010A.KEL4M"})
        fs::remove(good.area + "/" + link);
    good.read_again();
    for (const char *check : {"rpl", "boot-area"})
        EXPECT_THAT(good.found_by(check), IsEmpty()) << check;
}

TEST(KernelNfsServer, RunsWhateverProcessWatchesOverItsThreads) {
    GoodServer good;
    good.remove_daemon("ganesha.nfsd");
    good.snapshot.nfs = NfsServer::kernel;
    const auto add = [&](int pid, const std::string &name, std::vector<std::string> words) {
        Daemon daemon;
        daemon.process.pid = pid;
        daemon.process.short_name = daemon.program = name;
        daemon.process.arguments = std::move(words);
        good.snapshot.daemons.daemons.push_back(std::move(daemon));
    };
    add(200, "nfsd", {"/usr/lib/nfs/nfsd", "--watch", "8"});
    EXPECT_THAT(good.found_by("nfs-server"), testing::Not(IsEmpty())) << "the threads have ended";
    add(201, "nfsd", {});
    add(202, "rpc.mountd", {"/usr/lib/nfs/mountd", "-F"});
    EXPECT_THAT(good.found_by("nfs-server"), IsEmpty());
}

TEST(PcClient, NeedsNeitherReverseArpNorBootParameters) {
    GoodServer good;
    make_pc_client(good);
    good.read_again();
    for (const Check &check : all_checks()) {
        if (check.name == "reboot") // the folder of a test lies where things are emptied at boot
            continue;
        EXPECT_THAT(good.found_by(check.name), IsEmpty()) << check.name;
    }
}

TEST(PcClient, NeedsNoBroadcastsHandedOn) {
    GoodServer good;
    make_pc_client(good);
    good.read_again();
    good.daemon("rpcbind").process.arguments = {"rpcbind", "-w"};
    EXPECT_THAT(good.found_by("port-mapper"), IsEmpty());
    good.set_bootparams("client1 root=server:" + good.root +
                        " boottype=:pc\nclient2 root=server:/export/other\n");
    good.read_again();
    EXPECT_THAT(good.found_by("port-mapper"), Contains(HasSubstr("without -r")));
}

TEST(PcClient, IsGivenASwapFileThatLinuxTakes) {
    GoodServer good;
    make_pc_client(good);
    good.set_bootparams("client1 root=server:" + good.root + " swap=server:" + good.swap + " boottype=:pc\n");
    fs::resize_file(good.swap, 0);
    good.read_again();
    const Findings found = check(good.snapshot);
    const auto empty = std::find_if(found.begin(), found.end(), [](const Finding &finding) {
        return finding.stage == Stage::swap && finding.what == "it is empty";
    });
    ASSERT_NE(empty, found.end());
    EXPECT_EQ(empty->repair, "fallocate -l 32M " + good.swap + " && mkswap " + good.swap);
}

TEST(Faults, EveryCheckHasOne) {
    std::set<std::string> with_fault;
    for (const Fault &fault : faults)
        with_fault.insert(fault.check);
    for (const Check &check : all_checks())
        EXPECT_THAT(with_fault, Contains(check.name));
}

TEST(Daemons, ThatAreNotInstalledAreToldWithTheirPackage) {
    Wanted wanted{.found = {},
                  .name = "in.tftpd",
                  .programs = {"/none/in.tftpd"},
                  .package = "tftpd-hpa",
                  .stage = Stage::boot_program,
                  .why = "no client gets its boot program",
                  .start = "service tftpd-hpa start"};
    const auto missing = defect_of_daemon(wanted);
    ASSERT_TRUE(missing);
    EXPECT_THAT(missing->what, HasSubstr("not installed (package tftpd-hpa)"));
    EXPECT_EQ(missing->repair, "apt-get install tftpd-hpa && service tftpd-hpa start");
    wanted.package.clear();
    EXPECT_THAT(defect_of_daemon(wanted)->what, HasSubstr("Debian has no package"));
    wanted.programs = {"/bin/sh"};
    EXPECT_THAT(defect_of_daemon(wanted)->what, HasSubstr("does not run"));
}

TEST(ShareCommand, ThatIsMissingIsRepairedByWhatInstallsTheAdapters) {
    GoodServer good;
    good.snapshot.has_share_command = false;
    const Findings found = shares_of_server(good.snapshot);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].where, "/usr/sbin/share");
    EXPECT_EQ(found[0].repair, how_to_install_adapters());
}

TEST_P(EachFault, IsFoundByItsCheck) {
    GoodServer good;
    GetParam().seed(good);
    good.read_again();
    EXPECT_THAT(good.found_by(GetParam().check), Contains(HasSubstr(GetParam().says)));
    for (const Finding &finding : check(good.snapshot)) {
        EXPECT_NE(finding.where, "") << finding.what;
        EXPECT_NE(finding.why, "") << finding.what;
        EXPECT_NE(finding.repair, "") << finding.what;
    }
}

INSTANTIATE_TEST_SUITE_P(Checks, EachFault, testing::ValuesIn(faults));
