// SPDX-License-Identifier: MIT
// A preview tells what a run would: on one healthy server every method is previewed and then run, and both
// say the same. What a run changes stays for the methods after it.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace fs = std::filesystem;
using nlohmann::json;
using tests::content;
using tests::write;

namespace {

// The share command of this server, which keeps its list as the real one does.
const std::string share_script = R"(
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
echo "-               $1   $opts   \"\"" >>$tab)";
const std::string unshare_script = R"(shift 2
sed -i "\\|   *$1  |d" /etc/dfs/sharetab)";

// pkgadd, which notes a package in the records of the root that it was told.
const std::string pkgadd_script = R"(
root=/; dir=; pkg=
while [ $# -gt 0 ]; do case $1 in
-S) ;; -R) root=$2; shift;; -a) shift;; -d) dir=$2; shift;; *) pkg=$1;; esac; shift; done
mkdir -p $root/var/sadm/pkg/$pkg && cp $dir/$pkg/pkginfo $root/var/sadm/pkg/$pkg/)";
const std::string patch_script = R"([ -e $2/patched ] || echo patched >$2/patched)";
constexpr const char *data = "/opt/KTVXmgrd/2.2", *patch_tool = "/opt/KTVXmgr/2.2/bin/drelpatch";

int shell(const std::string &line) {
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// An answer is kept, to be held against the schema with all others.
void keep_answer(const std::string &command, const json &answer) {
    std::ofstream("/tmp/answers", std::ios::app)
        << json{{"command", command}, {"answer", answer}}.dump() << '\n';
}

json result_of(const std::string &words) {
    const int status = shell(HOSTADM " " + words + " >/tmp/out 2>/tmp/err </dev/null");
    json result = json::parse(content("/tmp/out"), nullptr, false);
    if (!result.is_object())
        return {{"status", status}, {"said", content("/tmp/err")}};
    keep_answer(words.substr(0, words.find(' ')), result);
    json kept{{"exit", status}};
    for (const char *part : {"status", "outputs", "rows", "errors", "reason", "half_done", "left_undone"})
        if (result.contains(part))
            kept[part] = result[part];
    return kept;
}

// A daemon that is started anew gets a number that nobody can foretell. What is found wrong depends on the daemons and
// the packet filter of the live system, in whose place a preview has its own.
void forget_new_numbers(json &result) {
    if (result.contains("outputs"))
        result["outputs"].erase("findings");
    if (result.contains("outputs") && result["outputs"].value("state", "") == "started")
        result["outputs"].erase("pid");
}

// The methods of which a run changed something, and the same once more found everything so already.
std::set<std::string> settled;

void expect_nothing_left_to_do(const std::string &words, const json &run) {
    if (run.value("status", "") != "done" || !run["outputs"].contains("changed"))
        return;
    const json again = result_of("run --json " + words);
    EXPECT_EQ(again.value("status", ""), "done") << words << again.dump(1);
    EXPECT_EQ(again["outputs"].value("changed", ""), "no") << words << again.dump(1);
    if (run["outputs"]["changed"] == "yes")
        settled.insert(words.substr(0, words.find(' ')));
}

// Whether it was done, as both say.
bool is_done_as_previewed(const std::string &words) {
    json preview = result_of("preview --json " + words), run = result_of("run --json " + words);
    expect_nothing_left_to_do(words, run);
    forget_new_numbers(preview);
    forget_new_numbers(run);
    EXPECT_EQ(preview.dump(1), run.dump(1)) << words;
    return run.value("status", "") == "done";
}

void set_up_a_server() {
    ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
    ASSERT_EQ(shell("{ ip link add net0 type dummy || ip link add net0 type bridge; } 2>/dev/null && "
                    "ip link set net0 up || true; "
                    "ip address add 10.1.2.1/24 dev \"$(ip -o link show net0 >/dev/null 2>&1 && echo net0 || "
                    "echo lo)\""),
              0);
    standin::reset();
    standin::place("/usr/sbin/share", {.script = share_script});
    standin::place("/usr/sbin/unshare", {.script = unshare_script});
    for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
        standin::place(daemon, {.stay = true});
        standin::start(daemon, "-a");
    }
    standin::place("/usr/sbin/rpld", {.stay = true});
    standin::place("/usr/sbin/dnsmasq"); // content with its settings
    standin::place("/usr/lib/service/dnsmasq", {.stay = true});
    standin::place("/etc/init.d/dnsmasq");
    standin::place("/usr/sbin/service", {.script = "/usr/lib/service/dnsmasq >/dev/null 2>&1 &"});
    for (const char *path :
         {"/export", "/tftpboot", "/rplboot", "/etc/dfs", "/etc/ethers", "/etc/bootparams"})
        fs::remove_all(path);
    write("/etc/hosts", "# hosts\n127.0.0.1\tlocalhost\n10.1.2.1\tserver1\n");
    write("/etc/ethers", "# ethers\n");
    write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
    write("/etc/dfs/dfstab", "# shares\n");
    write("/etc/dfs/sharetab", "");
    write("/etc/vfstab", "/dev/a - /a ufs - no -\n");
    write("/tree/etc/motd", "welcome\n");
    write("/tree/etc/vfstab", "server1:/export/root/c1 - / nfs - - rw\n");
    write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
    write("/pc-tree/etc/debian_version", "12.0\n");
    write("/pc-tree/boot/vmlinuz-6.1.0-1-amd64", "kernel");
    write("/pc-tree/boot/initrd.img-6.1.0-1-amd64", "initramfs");
    write("/dev-of-client/MAKEDEV", "#!/bin/sh\nmknod \"$1\" c 1 3\n");
    fs::permissions("/dev-of-client/MAKEDEV", fs::perms(0755));
    write("/export/exec/MAKEDEV", "#!/bin/sh\n: >node-$1\n");
    fs::permissions("/export/exec/MAKEDEV", fs::perms(0755));
    fs::create_directories("/export/root/c3/devices");
    for (const char *file : {"inetboot", "gluecode.com", "smc.com"})
        write("/rpl/export/exec/kel4.Quorvel_2.5/platform/kel4m/lib/fs/nfs/" + std::string(file), file);
    standin::place("/usr/sbin/pkgadd", {.script = pkgadd_script});
    standin::place(patch_tool, {.script = patch_script});
    for (const char *package :
         {"5.X/KTVXqsvu", "5.X/KTVXqsvr", "5.X/KTVXqcu", "5.4/KTVXmgr5u", "5.4/KTVXmgr5r"})
        for (const char *arch : {"i386", "kel4"})
            write(std::string(data) + "/Packages/" + arch + "/" + package + "/pkginfo",
                  "PKG=" + fs::path(package).filename().string() + "\nARCH=" + arch + "\nVERSION=1.0\n");
    write(std::string(data) + "/etc/autoinstall/small/one", "one disk\n");
    write(std::string(data) + "/etc/autoinstall/small/two", "two disks\n");
    for (const auto &unit : fs::directory_iterator(UNITS))
        fs::copy(unit.path(), "/usr/lib/systemd/system", fs::copy_options::overwrite_existing);
    write("/etc/init.d/rarpd", "#!/bin/sh\n");
    fs::create_directories("/var/sadm/system/admin/services");
    write("/packages/KTVXx/pkginfo", "PKG=KTVXx\nARCH=i386\nVERSION=1.0\n");
    fs::create_directories("/export/shared");
    fs::create_directories("/export/root/c3/etc");
}

const std::string identity = " instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5";

// In an order in which each finds what it needs.
const std::vector<std::string> invocations{
    "host/status",
    "client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c server=server1 tree=/tree" +
        identity,
    "client/add_diskless hostname=c2 address=10.9.9.9 ethernet=8:0:20:a:b:d server=elsewhere tree=/tree" +
        identity,
    "host/status",
    "client/list",
    "client/list_names",
    "client/show hostname=c1",
    "client/show hostname=nobody",
    "client/disable hostname=c1",
    "client/disable hostname=c1",
    "client/enable hostname=c1",
    "client/change hostname=c1 address=10.1.2.4",
    "client/change hostname=c1 address=10.1.2.3",
    "client/add_dataless hostname=d1 address=10.1.2.6 ethernet=8:0:20:a:c:1 server=server1 "
    "execpath=/export/shared instruction_set=kel4 os_name=Quorvel os_version=2.5",
    "client/remove hostname=d1",
    "client/copy hostname=c1 new_hostname=c5 address=10.1.2.5 ethernet=8:0:20:a:c:2",
    "client/change hostname=c5 share_options=rw=c5,root=c5,anon=0",
    "service/setup_cachelet_server",
    "client/add_cachelet hostname=c1 root=/export/root/c1 profile_set=small profile=one",
    "client/remove_cachelet hostname=c1",
    "client/add_diskless hostname=r1 address=10.1.2.14 ethernet=8:0:20:a:b:e server=server1 tree=/tree "
    "boot=rpl" +
        identity,
    "database/list_bootparams",
    "database/list_bootparams nameservice=all",
    "database/set_bootparams client=c1 key=dump server=server1 path=/export/dump/c1",
    "database/remove_bootparams client=c1 key=dump",
    "database/set_host address=10.1.2.9 hostname=c9",
    "database/list_hosts",
    "database/remove_host address=10.1.2.9",
    "database/set_ether ethernet=8:0:20:a:b:e hostname=c9",
    "database/list_ethers",
    "database/remove_ether hostname=c9",
    "filesystem/add_mount_entry resource=server1:/x mountpt=/x fstype=nfs mountatboot=yes",
    "filesystem/list_mount_entries",
    "filesystem/remove_mount_entry mountpt=/x",
    "filesystem/set_share_entry pathname=/export/shared options=ro",
    "filesystem/list_share_entries",
    "filesystem/remove_share_entry pathname=/export/shared",
    "filesystem/share pathname=/export/shared options=ro takeeffect=nowandboot",
    "filesystem/share pathname=/export/shared options=ro takeeffect=nowandboot",
    "filesystem/list_mounts",
    "filesystem/list_shares",
    "filesystem/unshare pathname=/export/shared",
    "filesystem/mount resource=server1:/x mountpt=/mnt fstype=nfs takeeffect=bootonly",
    "filesystem/unmount mountpt=/mnt takeeffect=bootonly",
    "host/enable_boot_services",
    "host/disable_boot_services",
    "host/check_daemon name=nfsd",
    "host/check_daemon name=nobodyd",
    "host/start_daemon path=/usr/sbin/rpld",
    "host/start_daemon path=/usr/lib/nfs/nfsd args='-a 16'",
    "host/start_daemon path=/usr/lib/nfs/nfsd args='$(reboot)'",
    "host/make_devices device=null directory=/dev-of-client",
    "host/make_devices device=null directory=/export/root/c3/devices script=/export/exec/MAKEDEV",
    "host/ping_rpc host=localhost program=100000 timeout=1",
    "install/get_os_pathnames inst_set_arch=kel4 imp_arch=kel4m os_prod=Quorvel os_version=2.5 dirpath=/tree",
    "netboot/setup_tftpboot address=10.1.2.7 install_hierarchy=/tree" + identity,
    "netboot/cleanup_tftpboot address=10.1.2.7",
    "netboot/setup_rplboot client_key=0800200A0B0D root_dir=/rpl" + identity,
    "netboot/cleanup_rplboot client_key=0800200A0B0D",
    "netboot/setup_pc interface=net0",
    "client/add_diskless hostname=p1 address=10.1.2.20 ethernet=8:0:20:a:b:20 server=server1 tree=/pc-tree "
    "boot=pc" +
        identity,
    "client/show hostname=p1",
    "client/change hostname=p1 address=10.1.2.21",
    "netboot/remove_pc",
    "client/remove hostname=p1 purge=yes",
    "netboot/remove_pc",
    "cachelet/enable_cache root=/export/root/c1",
    "cachelet/disable_cache root=/export/root/c1",
    "cachelet/enable_cache root=/export/root/c1",
    "cachelet/set_disk_profile root=/export/root/c1 profile_set=small profile=two",
    "service/create_root rootpath=/export/root/c3 os_name=Quorvel os_version=4.1.3 sources=/tree",
    "service/apply_patches root=/export/root/c1",
    "service/find_in_patches file=/etc/motd",
    "service/setup_cachelet_service release=2.4",
    "service/add_template_package package_dir=/packages package=KTVXx release=2.4",
    "service/add tree=/tree" + identity,
    "service/list",
    "service/show os_name=Quorvel os_version=2.5 instruction_set=kel4",
    "service/remove os_name=Quorvel os_version=2.5 instruction_set=kel4",
    "client/add_install hostname=c4 address=10.1.2.8 ethernet=8:0:20:a:b:f server=server1 "
    "install_hierarchy=/tree" +
        identity,
    "client/remove hostname=c4",
    "client/remove hostname=c5 purge=yes",
    "client/remove hostname=r1 purge=yes",
    "client/remove hostname=c1 purge=yes",
    "client/remove hostname=c1",
    "service/remove os_name=Quorvel os_version=2.5 instruction_set=kel4",
};

json methods() {
    shell(HOSTADM " list --json >/tmp/out");
    return json::parse(content("/tmp/out"));
}

} // namespace

TEST(PreviewAndRun, SayTheSameOfEveryMethod) {
    set_up_a_server();
    EXPECT_GE(std::count_if(invocations.begin(), invocations.end(), is_done_as_previewed), 34)
        << "most were refused, and little was compared";
}

TEST(PreviewAndRun, EveryMethodThatChangesSomethingIsSettledAfterOneRun) {
    for (const auto &method : methods()) {
        const std::string name = method.at("method");
        shell(METHODS "/" + name + " --describe >/tmp/out");
        const json told = json::parse(content("/tmp/out"), nullptr, false);
        ASSERT_TRUE(told.is_object()) << name;
        bool changes = false;
        for (const char *effect : {"edits", "starts", "shares"})
            changes = changes || (told.contains(effect) && !told[effect].empty());
        EXPECT_TRUE(!changes || settled.count(name) != 0)
            << name << " was not seen to change something, and then nothing";
    }
}

TEST(PreviewAndRun, AnswerAsTheSchemaSays) {
    for (const char *command : {"status", "check", "list"}) {
        EXPECT_EQ(shell(HOSTADM " " + std::string(command) + " --json >/tmp/out 2>/tmp/err") & ~1, 0);
        keep_answer(command, json::parse(content("/tmp/out")));
    }
    EXPECT_EQ(shell(VALIDATE " " SCHEMA " </tmp/answers >/tmp/out 2>&1"), 0) << content("/tmp/out");
    keep_answer("run", {{"method", "a/b"}, {"status", "perhaps"}});
    EXPECT_EQ(shell(VALIDATE " " SCHEMA " </tmp/answers >/tmp/out 2>&1"), 1) << "any answer would do";
}

TEST(PreviewAndRun, AreComparedForEveryMethod) {
    for (const auto &method : methods()) {
        const std::string name = method.at("method");
        if (name == "host/check") // what it tells is about those daemons and that packet filter
            continue;
        EXPECT_TRUE(std::any_of(invocations.begin(), invocations.end(), [&](const std::string &words) {
            return words.substr(0, words.find(' ')) == name;
        })) << name;
    }
}
