// SPDX-License-Identifier: MIT
// The life of an OS service: added in each way, listed, shown, used by a client, kept while it is used, removed; after
// that the server is as before. Packages are real ones; sharing is played by stand-ins.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <vector>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
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
echo "-  $1  $opts  \"\"" >>$tab)";
const std::string unshare_script = R"(
shift 2
sed -i "\\|  $1  |d" /etc/dfs/sharetab)";

const std::string service = " os_name=Quorvel os_version=2.5 instruction_set=kel4";
const std::string c1 = " hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c server=server1 swap_size=1m"
                       " implementation_arch=kel4m" +
                       service;
const std::string record = "/var/sadm/system/admin/services/Quorvel_2.5";

void shell(const std::string &line) {
    ASSERT_EQ(std::system((line + " >/tmp/said 2>&1").c_str()), 0) << line << "\n" << content("/tmp/said");
}

json answer(const std::string &words) {
    const Outcome run = hostadm("run --json " + words + " 2>/tmp/errors");
    EXPECT_EQ(run.status, 0) << words << "\n" << run.output << content("/tmp/errors");
    const json result = json::parse(run.output, nullptr, false);
    return result.is_object() ? result : json::object();
}

std::string changed(const std::string &words) {
    return answer(words).value("/outputs/changed"_json_pointer, "nothing was said");
}

std::string refused(const std::string &words) {
    const Outcome run = hostadm("run " + words);
    EXPECT_NE(run.status, 0) << words;
    return run.output;
}

// Everything of this server that a service or a client touches: kinds, modes, owners, link targets, contents.
std::string snapshot() {
    std::vector<fs::path> paths;
    for (const char *area : {"/export", "/tftpboot", "/var/sadm", "/opt/KTVXmgrd", "/var/lib/hostadm"}) {
        std::error_code error;
        if (fs::exists(area))
            paths.emplace_back(area);
        for (fs::recursive_directory_iterator entry(area, error), end; !error && entry != end;
             entry.increment(error))
            paths.push_back(entry->path());
    }
    for (const char *table :
         {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab", "/etc/dfs/sharetab"})
        paths.emplace_back(table);
    std::sort(paths.begin(), paths.end());
    std::string all;
    for (const fs::path &path : paths) {
        struct stat file {};
        if (lstat(path.c_str(), &file) != 0)
            continue;
        all += path.string() + " " + std::to_string(file.st_mode) + " " + std::to_string(file.st_uid);
        if (S_ISLNK(file.st_mode))
            all += " -> " + fs::read_symlink(path).string();
        else if (S_ISREG(file.st_mode))
            all += ": " + content(path);
        all += "\n";
    }
    return all;
}

class ServiceLife : public testing::Test {
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
        for (const char *path : {"/export", "/tftpboot", "/tree", "/etc/dfs", "/spool", "/cd", "/var/sadm",
                                 "/opt/KTVXmgr", "/opt/KTVXmgrd", "/var/lib/hostadm", "/usr/sbin/pkgadd"})
            fs::remove_all(path);
        write("/etc/hosts", "# hosts\n127.0.0.1\tlocalhost server1\n");
        write("/etc/dfs/dfstab", "# shares\n");
        write("/etc/ethers", "# ethers\n");
        write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
        write("/etc/dfs/sharetab", "");
        fs::create_directories("/tftpboot");
        fs::create_symlink(".", "/tftpboot/tftpboot");
        fs::create_directories("/var/lib/hostadm");
        fs::create_directories("/export/root"); // where clients have been before
        fs::create_directories("/export/swap");
        make_tree();
        fs::copy_file(PKGADD, "/usr/sbin/pkgadd");
    }
    void TearDown() override {
        if (fs::exists("/cp-of-before"))
            fs::rename("/cp-of-before", "/bin/cp");
    }
    static void replace_cp(const standin::Answer &answer) {
        fs::copy_file("/bin/cp", "/cp-of-before");
        standin::place("/bin/cp", answer);
    }
    static void make_tree() {
        write("/tree/etc/motd", "welcome\n");
        write("/tree/usr/bin/tool", "tool of the tree");
        write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
    }
    static void make_packages() {
        write("/build/root/etc/motd", "of a package\n");
        write("/build/root/platform/kel4m/lib/fs/nfs/inetboot", "boot program of a package");
        write("/build/usr/bin/tool", "tool of a package");
        fs::create_directories("/spool");
        const std::string make = std::string(PKGMK) + " -o -d /spool ";
        shell(make + "-r /build/root KTVXroot ARCH=kel4 VERSION=1.2");
        shell(make + "-r /build/usr KTVXusr ARCH=kel4 VERSION=1.2 BASEDIR=/usr");
        shell(make + "-r /build/usr KTVXother ARCH=kel3 VERSION=1.2");
    }
    static void make_export_area() {
        make_packages();
        fs::create_directories("/cd/export/root/templates");
        fs::rename("/spool", "/cd/export/root/templates/Quorvel_2.5");
        const std::string exec = "/cd/export/exec/kel4.Quorvel_2.5";
        write(exec + "/usr/bin/tool", "tool of the cd");
        write(exec + "/platform/kel4m/lib/fs/nfs/inetboot", "boot program of the cd");
        write(exec + "/platform/kel4c/lib/fs/nfs/inetboot", "another boot program");
        write("/cd/Patches/100001-01/KTVXroot/pkgmap", "1 f none etc/motd 0644 0 0 1 1 1\n");
        write("/cd/Patches/100001-01/KTVXroot/pkginfo", "PKG=KTVXroot\nARCH=kel4\n");
        write("/cd/Patches/100002-01/KTVXroot/pkgmap", "1 f none etc/motd 0644 0 0 1 1 1\n");
        write("/cd/Patches/100002-01/KTVXroot/pkginfo", "PKG=KTVXroot\nARCH=kel3\n");
    }
    // From its addition to its removal, with a client in between.
    static void expect_a_whole_life(const std::string &source) {
        const std::string before = snapshot();
        ASSERT_EQ(changed("service/add" + service + source), "yes");
        const std::string with_service = snapshot();
        EXPECT_EQ(changed("service/add" + service + source), "no");
        EXPECT_EQ(snapshot(), with_service);

        ASSERT_EQ(changed("client/add_diskless" + c1), "yes") << "without any path";
        EXPECT_EQ(answer("service/list").at("rows").at(0).at("clients"), "c1");
        const std::string with_client = snapshot();
        EXPECT_THAT(refused("service/remove" + service), HasSubstr("used by c1"));
        EXPECT_EQ(snapshot(), with_client);

        ASSERT_EQ(changed("client/remove hostname=c1 purge=yes"), "yes");
        ASSERT_EQ(changed("service/remove" + service), "yes");
        EXPECT_EQ(snapshot(), before);
        EXPECT_EQ(changed("service/remove" + service), "no");
        EXPECT_TRUE(answer("service/list").at("rows").empty());
    }
    static void expect_undone(const std::string &source, const std::string &words) {
        const std::string before = snapshot();
        EXPECT_THAT(refused("service/add" + service + source),
                    AllOf(HasSubstr(words), HasSubstr("has been taken back")));
        EXPECT_EQ(snapshot(), before);
    }
};

TEST_F(ServiceLife, OfATreeLeavesNothing) {
    expect_a_whole_life(" tree=/tree");
}

TEST_F(ServiceLife, OfPackagesLeavesNothing) {
    make_packages();
    expect_a_whole_life(
        " packages=/spool implementation_arch=kel4m boot_program=/tree/usr/platform/kel4m/lib/"
        "fs/nfs/inetboot");
}

TEST_F(ServiceLife, OfAnExportAreaLeavesNothing) {
    make_export_area();
    expect_a_whole_life(" install_hierarchy=/cd");
}

TEST_F(ServiceLife, OfAnOldReleaseLeavesNothing) {
    const std::string before = snapshot();
    const std::string old = " os_name=Quorvel os_version=4.1.3 instruction_set=kel4";
    ASSERT_EQ(changed("service/add" + old + " tree=/tree"), "yes");
    EXPECT_EQ(content("/tftpboot/boot.kel4m.Quorvel.4.1.3"), "boot program");
    EXPECT_EQ(changed("service/remove" + old), "yes");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, LaysATreeOutWhereClientsAndCachesLookForIt) {
    changed("service/add" + service + " tree=/tree");
    EXPECT_EQ(content("/export/root/templates/Quorvel_2.5/root_2.5_kel4.all/etc/motd"), "welcome\n");
    EXPECT_EQ(content("/export/Quorvel_2.5/usr_kel4.all/bin/tool"), "tool of the tree");
    EXPECT_EQ(content("/export/exec/kel4.Quorvel_2.5/usr/bin/tool"), "tool of the tree");
    EXPECT_EQ(content("/export/exec/kel4.Quorvel_2.5/platform/kel4m/lib/fs/nfs/inetboot"), "boot program");
    EXPECT_EQ(content("/tftpboot/inetboot.kel4m.Quorvel_2.5"), "boot program");
    EXPECT_EQ(content("/export/Quorvel_2.5/var/sadm/system/admin/CLUSTER"), "CLUSTER=all\n");
    EXPECT_EQ(content("/export/Quorvel_2.5/var/sadm/softinfo/INST_RELEASE"), "OS=Quorvel\nVERSION=2.5\n");
    EXPECT_THAT(content(record),
                AllOf(HasSubstr("OS_SERVICE=Quorvel 2.5 kel4 kel4m\n"),
                      HasSubstr("SPOOLED_ROOT=kel4.all:/export/root/templates/Quorvel_2.5/root_2.5_kel4.all\n"
                                "ROOT=kel4.all:root,2.5\n")));
}

TEST_F(ServiceLife, MakesRootsOfPackagesOfItsInstructionSetAndLendsTheirExecutables) {
    make_packages();
    const json added = answer("service/add" + service + " packages=/spool");
    EXPECT_THAT(added.at("rows").dump(), AllOf(HasSubstr("KTVXother (for kel3) was left out"),
                                               HasSubstr("clients get that of their new root")));
    EXPECT_TRUE(fs::exists("/export/root/templates/Quorvel_2.5/KTVXroot_1.2_kel4.all/KTVXroot/pkginfo"));
    EXPECT_EQ(content("/export/Quorvel_2.5/usr_kel4.all/bin/tool"), "tool of a package");

    const json client = answer("client/add_diskless" + c1);
    EXPECT_THAT(client.at("rows").dump(), HasSubstr("/export/Quorvel_2.5/usr_kel4.all ro"));
    EXPECT_EQ(content("/export/root/c1/etc/motd"), "of a package\n");
    EXPECT_THAT(content("/export/root/c1/var/sadm/install_data/.clustertoc"), HasSubstr("MEMBER=KTVXroot\n"));
    EXPECT_EQ(content("/tftpboot/0A010203"), "boot program of a package");
    EXPECT_THAT(content("/etc/dfs/sharetab"), HasSubstr("/export/Quorvel_2.5/usr_kel4.all  ro"));
}

TEST_F(ServiceLife, TakesBootProgramsExecutablesAndPatchesFromAnExportArea) {
    make_export_area();
    answer("service/add" + service + " install_hierarchy=/cd");
    EXPECT_EQ(content("/tftpboot/inetboot.kel4m.Quorvel_2.5"), "boot program of the cd");
    EXPECT_EQ(content("/tftpboot/inetboot.kel4c.Quorvel_2.5"), "another boot program");
    EXPECT_EQ(content("/export/Quorvel_2.5/usr_kel4.all/bin/tool"), "tool of the cd");
    EXPECT_TRUE(fs::exists("/opt/KTVXmgrd/2.2/Patches/100001-01/KTVXroot/pkgmap"));
    EXPECT_FALSE(fs::exists("/opt/KTVXmgrd/2.2/Patches/100002-01"));

    const json listed = answer("service/list").at("rows");
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0].at("architectures"), "kel4c, kel4m");
    EXPECT_EQ(listed[0].at("made_of"), "/cd");
    std::vector<std::string> parts;
    const json shown = answer("service/show" + service);
    for (const json &row : shown.at("rows"))
        parts.push_back(row.at("part").get<std::string>() + " " + row.at("name").get<std::string>() + " " +
                        row.at("there").get<std::string>());
    EXPECT_THAT(parts,
                ElementsAre("template KTVXroot,1.2 yes", "template KTVXusr,1.2 yes", "executables usr yes",
                            "boot program kel4c yes", "boot program kel4m yes", "patch 100001-01 yes"));
}

TEST_F(ServiceLife, PatchesOfItsInstructionSetAreAppliedToANewClientAndTold) {
    make_export_area();
    answer("service/add" + service + " install_hierarchy=/cd");
    const json without_tool = answer("client/add_diskless" + c1).at("rows");
    EXPECT_THAT(without_tool.dump(), HasSubstr("100001-01 for kel4 were not applied"));
    answer("client/remove hostname=c1 purge=yes");

    write("/opt/KTVXmgr/2.2/bin/drelpatch", "#!/bin/sh\n[ \"$1\" = -C ] && echo patched >$2/etc/patched\n");
    fs::permissions("/opt/KTVXmgr/2.2/bin/drelpatch", fs::perms(0755));
    const json with_tool = answer("client/add_diskless" + c1).at("rows");
    EXPECT_THAT(with_tool.dump(),
                HasSubstr(R"({"detail":"100001-01 for kel4","result":"done","step":"patches"})"));
    EXPECT_EQ(content("/export/root/c1/etc/patched"), "patched\n");
}

TEST_F(ServiceLife, AClientWhosePatchesFailIsTakenBack) {
    make_export_area();
    answer("service/add" + service + " install_hierarchy=/cd");
    write("/opt/KTVXmgr/2.2/bin/drelpatch", "#!/bin/sh\necho no such patch; exit 1\n");
    fs::permissions("/opt/KTVXmgr/2.2/bin/drelpatch", fs::perms(0755));
    const std::string before = snapshot();
    EXPECT_THAT(refused("client/add_diskless" + c1),
                AllOf(HasSubstr("cannot apply the patches"), HasSubstr("has been taken back")));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, OfTwoInstructionSetsEachGoesWithoutTheOther) {
    const std::string other = " os_name=Quorvel os_version=2.5 instruction_set=kel3";
    make_packages();
    write("/tree/usr/platform/kel3x/lib/fs/nfs/inetboot", "boot program of the other");
    fs::remove_all("/tree/usr/platform/kel4m");
    const std::string before = snapshot();
    changed("service/add" + service + " packages=/spool");
    const std::string one = snapshot();
    changed("service/add" + other + " tree=/tree");
    EXPECT_EQ(answer("service/list").at("rows").size(), 2U);

    EXPECT_EQ(changed("service/remove" + other), "yes");
    EXPECT_EQ(snapshot(), one);
    changed("service/add" + other + " tree=/tree");
    EXPECT_EQ(changed("service/remove" + service), "yes");
    EXPECT_FALSE(fs::exists("/export/Quorvel_2.5/var/sadm/pkg/KTVXusr"));
    EXPECT_EQ(answer("service/show" + other).at("rows").size(), 3U);
    EXPECT_EQ(changed("service/remove" + other), "yes");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, ATemplateAddedSinceStaysRecorded) {
    make_packages();
    changed("service/add" + service + " tree=/tree");
    answer("service/add_template_package package_dir=/spool package=KTVXroot release=2.5 arch=kel4");
    const json removed = answer("service/remove" + service).at("rows");
    EXPECT_THAT(removed.dump(), HasSubstr("was not made with the service, and stays"));
    EXPECT_EQ(content(record),
              "SPOOLED_ROOT=kel4.all:/export/root/templates/Quorvel_2.5/KTVXroot_1.2_kel4.all\n"
              "ROOT=kel4.all:KTVXroot,1.2\n");
}

TEST_F(ServiceLife, AnotherBootProgramMayComeLater) {
    const std::string before = snapshot();
    changed("service/add" + service + " tree=/tree");
    write("/other-program", "for kel4c");
    const std::string more = "service/add" + service +
                             " tree=/tree implementation_arch=kel4c"
                             " boot_program=/other-program";
    EXPECT_EQ(changed(more), "yes");
    EXPECT_EQ(changed(more), "no");
    EXPECT_EQ(content("/tftpboot/inetboot.kel4c.Quorvel_2.5"), "for kel4c");
    EXPECT_EQ(changed("service/remove" + service), "yes");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, RefusesWhatMakesNoSense) {
    const std::string before = snapshot();
    for (const auto &[words, complaint] : std::vector<std::pair<std::string, std::string>>{
             {service, "one of tree, packages and install_hierarchy"},
             {service + " tree=/tree packages=/spool", "one of tree, packages and install_hierarchy"},
             {" os_name=Quorvel os_version=4.1.3 instruction_set=kel4 packages=/tree", "has no packages"},
             {" os_name=.. os_version=2.5 instruction_set=kel4 tree=/tree", "cannot be part of"},
             {" os_name=Q:x os_version=2.5 instruction_set=kel4 tree=/tree", "cannot be part of"},
             {service + " tree=/nowhere", "no such directory"},
             {service + " tree=/tree/etc", "no root file system"},
             {service + " tree=/", "lie in one another"},
             {service + " packages=/tree", "holds no packages"},
             {service + " install_hierarchy=/spool-of-nothing", "no such directory"},
             {service + " tree=/tree boot_program=/nowhere", "there is no boot program"},
             {service + " tree=/tree implementation_arch=kel4x", "no boot program for kel4x"}})
        EXPECT_THAT(refused("service/add" + words), HasSubstr(complaint)) << words;
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, RefusesAPlaceThatIsSomebodyElses) {
    write("/export/exec/kel4.Quorvel_2.5/precious", "do not touch");
    const std::string before = snapshot();
    EXPECT_THAT(refused("service/add" + service + " tree=/tree"), HasSubstr("belongs to no service"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, OfAnotherSourceIsRefused) {
    changed("service/add" + service + " tree=/tree");
    fs::copy("/tree", "/tree2", fs::copy_options::recursive);
    EXPECT_THAT(refused("service/add" + service + " tree=/tree2"), HasSubstr("made of /tree"));
    fs::remove_all("/tree2");
}

TEST_F(ServiceLife, SharedWithOthersItStays) {
    changed("service/add" + service + " tree=/tree");
    write("/etc/dfs/sharetab", "-  /export/Quorvel_2.5/usr_kel4.all  rw=x  \"\"\n");
    const std::string before = snapshot();
    EXPECT_THAT(refused("service/remove" + service), HasSubstr("is shared with rw=x; unshare it first"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, IsTakenBackWhenItsTreeCannotBeCopied) {
    replace_cp({.error = "cp: sector not found\n", .status = 1});
    expect_undone(" tree=/tree", "sector not found");
}

TEST_F(ServiceLife, IsTakenBackWhenItsPackagesCannotBeInstalled) {
    make_packages();
    standin::place("/usr/sbin/pkgadd", {.error = "pkgadd: checksum\n", .status = 1});
    expect_undone(" packages=/spool", "checksum");
    standin::place("/usr/sbin/pkgadd");
    expect_undone(" packages=/spool", "is empty, although packages were installed");
    fs::remove("/usr/sbin/pkgadd");
    expect_undone(" packages=/spool", "pkgadd, which installs packages, is missing");
}

TEST_F(ServiceLife, IsTakenBackWhenTheDiskIsFull) {
    ASSERT_EQ(mount("small", "/export", "tmpfs", 0, "size=64k"), 0);
    write("/tree/usr/large", std::string(200'000, 'x'));
    expect_undone(" tree=/tree", "No space left on device");
    umount2("/export", MNT_DETACH);
}

TEST_F(ServiceLife, IsTakenBackWhenItCannotBeRecorded) {
    const std::string folder = fs::path(record).parent_path();
    fs::create_directories(folder);
    ASSERT_EQ(mount("full", folder.c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    expect_undone(" tree=/tree", record);
    umount(folder.c_str());
}

TEST_F(ServiceLife, IsRefusedWhereItsRecordIsNoFile) {
    fs::create_directories(record + "/in-the-way");
    const std::string before = snapshot();
    EXPECT_THAT(refused("service/add" + service + " tree=/tree"), HasSubstr("is no file; remove it first"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(ServiceLife, IsTakenBackWhenTheBootAreaIsNone) {
    fs::remove_all("/tftpboot");
    write("/tftpboot", "a file");
    expect_undone(" tree=/tree", "/tftpboot");
    fs::remove("/tftpboot");
}

TEST_F(ServiceLife, CutOffItIsLaidOutAnewByTheNextRun) {
    write("/export/root/templates/Quorvel_2.5/root_2.5_kel4.all/etc/motd", "");
    write("/export/Quorvel_2.5/half", "");
    EXPECT_THAT(refused("service/add" + service + " tree=/tree"), HasSubstr("belongs to no service"));
    write("/var/lib/hostadm/filling",
          "/export/Quorvel_2.5\tQuorvel_2.5.kel4\n"
          "/export/root/templates/Quorvel_2.5/root_2.5_kel4.all\tQuorvel_2.5.kel4\n");
    EXPECT_EQ(changed("service/add" + service + " tree=/tree"), "yes");
    EXPECT_EQ(content("/export/Quorvel_2.5/usr_kel4.all/bin/tool"), "tool of the tree");
    EXPECT_EQ(changed("service/remove" + service), "yes");
    EXPECT_FALSE(fs::exists("/export/Quorvel_2.5"));
    EXPECT_FALSE(fs::exists("/var/lib/hostadm/filling")) << "it was whole";
}

} // namespace

namespace {

// A step of a server's life, and what stands in its way the first time: a folder where nothing can be written.
struct Step {
    std::string words;
    const char *obstacle;
    bool is_taken_back = true; // what a removal has taken away stays away
};

void make_read_only(const char *folder) {
    ASSERT_EQ(mount(folder, folder, nullptr, MS_BIND, nullptr), 0) << folder;
    ASSERT_EQ(mount(nullptr, folder, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0) << folder;
}

void live_through(const Step &step) {
    SCOPED_TRACE(step.words);
    const std::string before = snapshot();
    make_read_only(step.obstacle);
    EXPECT_NE(refused(step.words), "") << "a failure has its reason";
    ASSERT_EQ(umount2(step.obstacle, MNT_DETACH), 0);
    if (step.is_taken_back) {
        EXPECT_EQ(snapshot(), before);
    }
    ASSERT_EQ(changed(step.words), "yes");
    if (!step.words.starts_with("client/change")) { // of a client that has another name by now
        EXPECT_EQ(changed(step.words), "no");
    }
}

std::string client(const std::string &name, int number) {
    return " hostname=" + name + " server=server1 address=10.1.2." + std::to_string(number) +
           " ethernet=8:0:20:1:2:" + std::to_string(number);
}

} // namespace

TEST_F(ServiceLife, WithClientsOfAllKindsEachStepFailingOnceLeavesNothing) {
    make_export_area();
    for (const char *module : {"gluecode.com", "smc.com"})
        write(std::string("/tree/usr/platform/kel4m/lib/fs/nfs/") + module, module);
    fs::create_directories("/rplboot");
    write("/tree/etc/vfstab", "/proc - /proc proc - no -\n");
    // What cache-only clients need of the server stays when they have gone, so it is there before.
    const std::string data = "/opt/KTVXmgrd/2.2";
    write(data + "/etc/autoinstall/small/one", "install_type initial\n");
    for (const char *package : {"KTVXqsvu", "KTVXqsvr"})
        shell(std::string(PKGMK) + " -r /build/usr -d " + data + "/Packages/i386/5.X " + package +
              " ARCH=i386 VERSION=5.5");
    shell(std::string(PKGMK) + " -r /build/usr -d " + data +
          "/Packages/kel4/5.X KTVXqcu ARCH=kel4 VERSION=5.5");
    ASSERT_EQ(changed("service/setup_cachelet_server"), "yes");
    const std::string before = snapshot();
    const std::string identity = " implementation_arch=kel4m" + service;
    const std::vector<Step> steps = {
        {"service/add tree=/tree implementation_arch=kel4m" + service, "/tftpboot"},
        {"client/add_diskless swap_size=1m" + client("c1", 11) + identity, "/etc"},
        {"client/add_diskless boot=rpl swap_size=1m" + client("c2", 12) + identity, "/etc"},
        {"client/add_dataless" + client("c3", 13) + service, "/etc"},
        {"client/add_install install_hierarchy=/cd" + client("c4", 14) + identity, "/etc"},
        {"client/copy hostname=c1 new_hostname=c5 address=10.1.2.15 ethernet=8:0:20:1:2:15", "/etc"},
        {"client/change hostname=c1 address=10.1.2.21 ethernet=8:0:20:1:2:21", "/etc"},
        {"client/change hostname=c1 new_hostname=renamed", "/etc"},
        // The packages that it installs for its service stay.
        {"client/add_cachelet hostname=renamed profile_set=small profile=one", "/etc", false},
        {"client/remove_cachelet hostname=renamed", "/etc"},
        {"client/disable hostname=renamed", "/etc"},
        {"client/enable hostname=renamed", "/etc"},
        {"client/remove purge=yes hostname=renamed", "/etc", false},
        {"client/remove purge=yes hostname=c5", "/etc", false},
        {"client/remove purge=yes hostname=c4", "/etc", false},
        {"client/remove purge=yes hostname=c3", "/etc", false},
        {"client/remove purge=yes hostname=c2", "/etc", false},
        {"service/remove" + service, "/tftpboot", false}};
    for (const Step &step : steps) {
        if (step.words.starts_with("client/remove purge=yes hostname=renamed")) {
            std::string kinds;
            const json list = answer("client/list");
            for (const json &row : list.at("rows"))
                kinds += row.value("name", "") + " " + row.value("kind", "") + ", ";
            EXPECT_THAT(kinds,
                        AllOf(HasSubstr("renamed diskless"), HasSubstr("c2 rpl"), HasSubstr("c3 dataless"),
                              HasSubstr("c4 install"), HasSubstr("c5 diskless")));
            EXPECT_THAT(refused("service/remove" + service), HasSubstr("c3"));
        }
        live_through(step);
        if (HasFatalFailure())
            return;
    }
    fs::remove_all("/rplboot");
    EXPECT_EQ(snapshot(), before);
}
