// SPDX-License-Identifier: MIT
// Packages, templates, patches and the methods of cache-only clients with the real commands, inside a
// throwaway root. pkgadd is a stand-in that makes a record of what it was to install.
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "hostadm.h"
#include "support/eventually.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::write;

const std::string data = "/opt/KTVXmgrd/2.2";
const std::string record_file = "/var/sadm/system/admin/services/Quorvel_2.4";
const std::string templates = "/export/root/templates/Quorvel_2.4";

// Standard input of the process comes from a file while the object lives.
class Input {
public:
    explicit Input(const std::string &path) : saved_(dup(STDIN_FILENO)) {
        const int file = open(path.c_str(), O_RDONLY);
        dup2(file, STDIN_FILENO);
        close(file);
    }
    ~Input() {
        dup2(saved_, STDIN_FILENO);
        close(saved_);
    }

private:
    int saved_;
};

struct Ran {
    int status;
    std::string output; // both streams
};

Ran hostadm(const std::string &arguments) {
    const std::string log = "/tmp/hostadm.output";
    const int status = system((HOSTADM_COMMAND " " + arguments + " >" + log + " 2>&1").c_str());
    return {WEXITSTATUS(status), content(log)};
}

// pkgadd notes the package in the records that it was told to install into.
const std::string installing =
    "root=/; dir=; pkg=\n"
    "while [ $# -gt 0 ]; do case $1 in\n"
    "-S) ;; -R) root=$2; shift;; -a) cp $2 /tmp/admin.copy; shift;; -d) dir=$2; shift;;\n"
    "*) pkg=$1;; esac; shift; done\n"
    "mkdir -p $root/var/sadm/pkg/$pkg && cp $dir/$pkg/pkginfo $root/var/sadm/pkg/$pkg/\n";

class CacheletSystem : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("HOSTADM_SANDBOX") == nullptr)
            GTEST_SKIP() << "runs in a throwaway root only";
        standin::reset();
        standin::place("/usr/sbin/pkgadd", {.script = installing});
        for (const char *path :
             {"/opt/KTVXmgrd", "/opt/KTVXmgr", "/var/sadm", "/export", "/tmp/.softinfo.edit"})
            fs::remove_all(path);
        fs::create_directories(fs::path(record_file).parent_path());
    }
    void package(const std::string &release, const std::string &name, const std::string &version = "1.0") {
        write(data + "/Packages/i386/" + release + "/" + name + "/pkginfo",
              "PKG=" + name + "\nARCH=i386\nVERSION=" + version + "\n");
    }
    const std::string add_template_command =
        "run service/add_template_package package=KTVXmgr5r release=2.4 package_dir=" + data +
        "/Packages/i386/5.4";
    static int add_template(const std::string &release = "5.4") {
        return add_pkg_to_templates("m", (data + "/Packages/i386/" + release).c_str(), "KTVXmgr5r", "i386",
                                    "2.4");
    }
};

} // namespace

TEST_F(CacheletSystem, ServerPackagesAreInstalledOnce) {
    package("5.X", "KTVXqsvu");
    package("5.X", "KTVXqsvr");
    EXPECT_EQ(setup_as_cachelet_server("m"), 0);
    EXPECT_TRUE(fs::exists("/var/sadm/pkg/KTVXqsvu/pkginfo"));
    EXPECT_TRUE(fs::exists("/var/sadm/pkg/KTVXqsvr/pkginfo"));
    EXPECT_THAT(content("/tmp/admin.copy"), HasSubstr("basedir=/\n"));
    EXPECT_EQ(standin::lines().size(), 2u);
    EXPECT_EQ(setup_as_cachelet_server("m"), 0);
    EXPECT_EQ(standin::lines().size(), 2u);
}

TEST_F(CacheletSystem, FailedServerPackageStopsTheSetUpAndLeavesNoFile) {
    package("5.X", "KTVXqsvu");
    package("5.X", "KTVXqsvr");
    standin::place("/usr/sbin/pkgadd", {.error = "no space\n", .status = 1});
    const auto logs = [] { // also those of others on this machine
        std::set<std::string> names;
        for (const fs::directory_entry &entry : fs::directory_iterator("/tmp"))
            if (entry.path().filename().string().starts_with("pkgadd."))
                names.insert(entry.path());
        return names;
    };
    const std::set<std::string> before = logs();
    EXPECT_EQ(setup_as_cachelet_server("m"), 1);
    EXPECT_EQ(standin::lines().size(), 1u);
    EXPECT_EQ(logs(), before);
    EXPECT_FALSE(fs::exists("/tmp/pkgadmin." + std::to_string(getpid())));
}

TEST_F(CacheletSystem, MissingSecondServerPackageLeavesTheFirst) {
    package("5.X", "KTVXqsvu");
    testing::internal::CaptureStderr();
    EXPECT_EQ(setup_as_cachelet_server("m"), 1);
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "m: the package " + data +
            "/Packages/i386/5.X/KTVXqsvr is missing; is this the right package directory? (error 96)\n");
    EXPECT_TRUE(fs::exists("/var/sadm/pkg/KTVXqsvu/pkginfo"));
    EXPECT_EQ(standin::lines().size(), 1u);
}

TEST_F(CacheletSystem, ServiceOfRelease24TakesTwoCalls) {
    package("5.4", "KTVXmgr5u");
    package("5.4", "KTVXmgr5r");
    package("5.X", "KTVXqcu");
    const Input nothing("/dev/null");
    EXPECT_EQ(setup_cachelet_service("m", "i386", "2.4"), 1) << "the addition of the template ends it";
    EXPECT_TRUE(fs::exists("/export/Quorvel_2.4/var/sadm/pkg/KTVXmgr5u/pkginfo"));
    EXPECT_THAT(content("/tmp/admin.copy"), HasSubstr("basedir=/usr_i386.all\n"));
    EXPECT_FALSE(fs::exists("/export/Quorvel_2.4/var/sadm/pkg/KTVXqcu"));
    EXPECT_EQ(setup_cachelet_service("m", "i386", "2.4"), 0);
    EXPECT_TRUE(fs::exists("/export/Quorvel_2.4/var/sadm/pkg/KTVXqcu/pkginfo"));
}

TEST_F(CacheletSystem, TemplateIsCopiedAndRecordedOnce) {
    package("5.4", "KTVXmgr5r");
    const Input nothing("/dev/null");
    EXPECT_NE(add_template(), 0);
    const std::string path = templates + "/KTVXmgr5r_1.0_i386.all";
    EXPECT_TRUE(fs::exists(path + "/KTVXmgr5r/pkginfo"));
    const std::string lines = "SPOOLED_ROOT=i386.all:" + path + "\nROOT=i386.all:KTVXmgr5r,1.0\n";
    EXPECT_EQ(content(record_file), lines);
    EXPECT_EQ(add_template(), 0);
    EXPECT_EQ(content(record_file), lines);
}

TEST_F(CacheletSystem, OlderTemplateIsReplaced) {
    package("5.4", "KTVXmgr5r");
    const Input nothing("/dev/null");
    add_template();
    write(record_file, "OTHER=kept\n" + content(record_file));
    chmod(record_file.c_str(), 0640);
    package("5.4", "KTVXmgr5r", "1.1");
    const Input known(record_file);
    EXPECT_NE(add_template(), 0);
    const std::string path = templates + "/KTVXmgr5r_1.1_i386.all";
    EXPECT_EQ(content(record_file),
              "OTHER=kept\nSPOOLED_ROOT=i386.all:" + path + "\nROOT=i386.all:KTVXmgr5r,1.1\n");
    EXPECT_FALSE(fs::exists(templates + "/KTVXmgr5r_1.0_i386.all"));
    struct stat status = {};
    ASSERT_EQ(stat(record_file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
}

// What a user does who owns the folders but has no privilege; his answer.
template <typename Work> int as_ordinary_user(Work work) {
    const pid_t child = fork();
    if (child == 0)
        _exit(setgid(65534) == 0 && setuid(65534) == 0 ? work() : 99);
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void give_to_ordinary_user(const std::string &path) {
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    for (const auto &entry : fs::recursive_directory_iterator(path))
        ASSERT_EQ(chown(entry.path().c_str(), 65534, 65534), 0);
}

TEST_F(CacheletSystem, ReadOnlyRecordKeepsItsOtherLinesAndItsMode) {
    package("5.4", "KTVXmgr5r");
    const Input nothing("/dev/null");
    add_template();
    write(record_file, "OTHER=kept\n" + content(record_file));
    chmod(record_file.c_str(), 0444);
    package("5.4", "KTVXmgr5r", "1.1");
    give_to_ordinary_user("/var/sadm");
    give_to_ordinary_user("/export");
    const Input known(record_file);
    EXPECT_EQ(as_ordinary_user([] { return add_template() != 0 ? 0 : 1; }), 0);
    EXPECT_EQ(content(record_file), "OTHER=kept\nSPOOLED_ROOT=i386.all:" + templates +
                                        "/KTVXmgr5r_1.1_i386.all\nROOT=i386.all:KTVXmgr5r,1.1\n");
    struct stat status = {};
    ASSERT_EQ(stat(record_file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0444u);
}

TEST_F(CacheletSystem, ReadOnlyTableIsEditedByTheOwnerOfItsFolder) {
    write("/export/c1/etc/vfstab", "s:/root - / nfs - yes rw\n");
    chmod("/export/c1/etc/vfstab", 0444);
    fs::create_directories("/export/c1/etc/fs");
    give_to_ordinary_user("/export/c1");
    const Input nothing("/dev/null");
    EXPECT_EQ(as_ordinary_user([] { return enable_chart("/export/c1"); }), 0);
    EXPECT_EQ(content("/export/c1/etc/vfstab"), "s:/root - / nfs - yes rw,disconnectable\n");
    struct stat status = {};
    ASSERT_EQ(stat("/export/c1/etc/vfstab", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0444u);
    EXPECT_EQ(status.st_uid, 65534u);
}

TEST_F(CacheletSystem, PlantedEditFileIsNotFollowed) {
    package("5.4", "KTVXmgr5r");
    const Input nothing("/dev/null");
    add_template();
    package("5.4", "KTVXmgr5r", "1.1");
    write("/etc/precious", "precious\n");
    fs::create_symlink("/etc/precious", "/tmp/.softinfo.edit");
    const Input known(record_file);
    EXPECT_NE(add_template(), 0);
    EXPECT_EQ(content("/etc/precious"), "precious\n");
    EXPECT_THAT(content(record_file), HasSubstr("ROOT=i386.all:KTVXmgr5r,1.1\n"));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(record_file)));
}

TEST_F(CacheletSystem, LeftoverTemplateBlocksTheAddition) {
    package("5.4", "KTVXmgr5r");
    fs::create_directories(templates + "/KTVXmgr5r_1.0_i386.all");
    const Input nothing("/dev/null");
    testing::internal::CaptureStderr();
    EXPECT_EQ(add_template(), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "m: the template directory " + templates + "/KTVXmgr5r_1.0_i386.all exists already, but " +
                  record_file + " does not list it; move it away and try again (error 97)\n");
    EXPECT_FALSE(fs::exists(record_file));
}

TEST_F(CacheletSystem, TemplateThatCannotBeCopiedFails) {
    package("5.4", "KTVXmgr5r");
    write("/export/root/templates", "a file in the way\n");
    const Input nothing("/dev/null");
    EXPECT_EQ(add_template(), 1);
    EXPECT_FALSE(fs::exists(record_file));
}

TEST_F(CacheletSystem, FileIsFoundInThePatchesOfItsArchitecture) {
    for (const char *patch : {"101-01", "102-01"}) {
        write(data + "/Patches/" + patch + "/KTVXcsu/pkgmap", std::string("1 f none kernel/") + patch + "\n");
        write(data + "/Patches/" + patch + "/KTVXcsu/pkginfo", "PKG=KTVXcsu\nARCH=i386\n");
    }
    EXPECT_EQ(file_in_patches("i386", "kernel/101"), 256);
    EXPECT_EQ(file_in_patches("i386", "kernel/10"), 256);
    EXPECT_EQ(file_in_patches("ppc", "kernel/101"), 0);
    EXPECT_EQ(file_in_patches("i386", "kernel/none"), 0);
    EXPECT_EQ(hostadm("run service/find_in_patches file=kernel/101").output, "found  yes\n");
    EXPECT_EQ(hostadm("run service/find_in_patches file=kernel/none").output, "found  no\n");
    fs::remove_all(data + "/Patches/102-01");
    EXPECT_EQ(hostadm("run service/find_in_patches file=kernel/101").output, "found  yes\n")
        << "one package only";
    fs::remove_all(data + "/Patches");
    EXPECT_EQ(hostadm("run service/find_in_patches file=kernel/101").output, "found  no\n");
    EXPECT_EQ(hostadm("run service/find_in_patches 'file=a;b'").status, 2);
}

TEST_F(CacheletSystem, PatchToolRunsOnTheClient) {
    fs::create_directories("/export/root/c1");
    EXPECT_EQ(apply_patches("/export/root/c1"), 0) << "no patch tool";
    EXPECT_EQ(hostadm("run service/apply_patches root=/export/root/c1").output,
              "result   no_patch_tool\nchanged  no\n");
    standin::place("/opt/KTVXmgr/2.2/bin/drelpatch", {.script = "echo \"$*\" >$2/called"});
    EXPECT_EQ(hostadm("run service/apply_patches root=/export/root/c1").output,
              "result   applied\nchanged  yes\n");
    EXPECT_EQ(content("/export/root/c1/called"), "-C /export/root/c1\n");
    standin::place("/opt/KTVXmgr/2.2/bin/drelpatch", {.output = "two patches\n"});
    EXPECT_EQ(hostadm("run service/apply_patches root=/export/root/c1").output,
              "result   applied\nchanged  no\nhostadm: service/apply_patches: note: two patches\n");
    standin::place("/opt/KTVXmgr/2.2/bin/drelpatch", {.error = "bad patch\n", .status = 2});
    const Ran failed = hostadm("run service/apply_patches root=/export/root/c1");
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.output, HasSubstr("bad patch"));
    EXPECT_THAT(failed.output, HasSubstr("cannot apply the patches to /export/root/c1"));
    EXPECT_EQ(hostadm("run service/apply_patches root=/no/client").status, 1);
}

// ---- methods ----

TEST_F(CacheletSystem, ServerMethodTellsWhatItInstalled) {
    package("5.X", "KTVXqsvu");
    package("5.X", "KTVXqsvr");
    fs::create_directories("/var/sadm/pkg/KTVXqsvu");
    fs::copy_file(data + "/Packages/i386/5.X/KTVXqsvu/pkginfo", "/var/sadm/pkg/KTVXqsvu/pkginfo");
    EXPECT_EQ(hostadm("run service/setup_cachelet_server").output,
              "changed  yes\n\npackage   result\nKTVXqsvu  present\nKTVXqsvr  installed\n");
    EXPECT_EQ(hostadm("run service/setup_cachelet_server").output,
              "changed  no\n\npackage   result\nKTVXqsvu  present\nKTVXqsvr  present\n");
}

TEST_F(CacheletSystem, ServiceMethodGoesOnAfterTheTemplate) {
    package("5.4", "KTVXmgr5u");
    package("5.4", "KTVXmgr5r");
    package("5.X", "KTVXqcu");
    const Ran first = hostadm("run service/setup_cachelet_service release=2.4");
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.output, "changed  yes\n\npackage    result\nKTVXmgr5u  installed\nKTVXmgr5r  "
                            "installed\nKTVXqcu    installed\n");
    EXPECT_EQ(
        hostadm("run service/setup_cachelet_service release=2.4").output,
        "changed  no\n\npackage    result\nKTVXmgr5u  present\nKTVXmgr5r  present\nKTVXqcu    present\n");
    EXPECT_EQ(hostadm("run service/setup_cachelet_service release=4.1.3").status, 2);
}

TEST_F(CacheletSystem, TemplateMethodTellsTheTruthAboutTheAddition) {
    package("5.4", "KTVXmgr5r");
    fs::remove_all("/var/sadm");
    const Ran first = hostadm(add_template_command);
    EXPECT_EQ(first.status, 0);
    EXPECT_THAT(first.output, testing::AllOf(HasSubstr("result    done\n"), HasSubstr("changed   yes\n")));
    EXPECT_THAT(hostadm(add_template_command).output,
                testing::AllOf(HasSubstr("result    unchanged\n"), HasSubstr("changed   no\n")));
    package("5.4", "KTVXmgr5r", "1.1");
    EXPECT_THAT(hostadm(add_template_command).output, HasSubstr("result    done\n"));
    EXPECT_FALSE(fs::exists(templates + "/KTVXmgr5r_1.0_i386.all"));
    EXPECT_THAT(content(record_file), Not(HasSubstr("1.0")));
}

TEST_F(CacheletSystem, TemplateMethodsNeverRemoveAnotherPackage) {
    package("5.4", "KTVXmgr5u");
    package("5.4", "KTVXmgr5r");
    const std::string before = "SPOOLED_ROOT=i386.all:" + templates +
                               "/KTVXmgr5root_1.0_i386.all\n"
                               "ROOT=i386.all:KTVXmgr5root,1.0\n";
    write(record_file, before);
    for (const std::string &method :
         {add_template_command, std::string("run service/setup_cachelet_service release=2.4")}) {
        const Ran ran = hostadm(method);
        EXPECT_EQ(ran.status, 1);
        EXPECT_THAT(ran.output, HasSubstr("nothing was changed"));
        EXPECT_EQ(content(record_file), before);
        EXPECT_FALSE(fs::exists("/export/Quorvel_2.4"));
    }
}

TEST_F(CacheletSystem, TemplateBesideAnotherOfALongerNameStaysAsItIs) {
    package("5.4", "KTVXmgr5r");
    EXPECT_EQ(hostadm(add_template_command).status, 0);
    const std::string both = content(record_file) + "SPOOLED_ROOT=i386.all:" + templates +
                             "/KTVXmgr5root_1.0_i386.all\n"
                             "ROOT=i386.all:KTVXmgr5root,1.0\n";
    write(record_file, both);
    EXPECT_THAT(hostadm(add_template_command).output, HasSubstr("result    unchanged\n"));
    EXPECT_EQ(content(record_file), both);
}

TEST_F(CacheletSystem, TemplateMethodTakesAVersionAsTheShellDoes) {
    package("5.4", "KTVXmgr5r", "\"2.0,REV=1\"");
    EXPECT_THAT(hostadm(add_template_command).output, HasSubstr("result    done\n"));
    EXPECT_TRUE(fs::exists(templates + "/KTVXmgr5r_2.0,REV=1_i386.all/KTVXmgr5r/pkginfo"));
    EXPECT_THAT(content(record_file), HasSubstr("ROOT=i386.all:KTVXmgr5r,2.0,REV=1\n"));
    EXPECT_THAT(hostadm(add_template_command).output, HasSubstr("result    unchanged\n"));
    for (const char *version : {"2 0", "2;reboot", "`reboot`", "2/0", "'2"}) {
        package("5.4", "KTVXmgr5r", version);
        const std::string before = content(record_file);
        const Ran ran = hostadm(add_template_command);
        EXPECT_EQ(ran.status, 1);
        EXPECT_THAT(ran.output, HasSubstr("cannot be part of a directory's name"));
        EXPECT_EQ(content(record_file), before);
    }
}

TEST_F(CacheletSystem, TemplateMethodKeepsTheOlderVersionForOneThatMakesNoName) {
    package("5.4", "KTVXmgr5r");
    EXPECT_EQ(hostadm(add_template_command).status, 0);
    const std::string before = content(record_file);
    package("5.4", "KTVXmgr5r", std::string(300, '2'));
    EXPECT_THAT(hostadm(add_template_command).output, HasSubstr("cannot be part of a directory's name"));
    write(data + "/Packages/i386/5.4/KTVXmgr5r/pkginfo", "VERSION=2.0");
    EXPECT_THAT(hostadm(add_template_command).output, HasSubstr("does not end with a newline"));
    EXPECT_EQ(content(record_file), before);
    EXPECT_TRUE(fs::exists(templates + "/KTVXmgr5r_1.0_i386.all/KTVXmgr5r/pkginfo"));
}

TEST_F(CacheletSystem, TemplateMethodTellsOfNoTemplateThatIsNotThere) {
    const Ran ran = hostadm(add_template_command);
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.output, "hostadm: service/add_template_package: the package " + data +
                              "/Packages/i386/5.4/KTVXmgr5r is missing; is this the right package directory? "
                              "(error 96)\n");
}

TEST_F(CacheletSystem, TemplateMethodTakesBackWhatItCannotRecord) {
    package("5.4", "KTVXmgr5r");
    fs::create_directories(record_file); // a directory: nothing can be appended to it
    const Ran ran = hostadm(add_template_command);
    EXPECT_EQ(ran.status, 1);
    EXPECT_FALSE(fs::exists(templates + "/KTVXmgr5r_1.0_i386.all"));
}

namespace {

const std::string table = "srv:/r - / nfs - no rw\nsrv:/u - /usr nfs - no ro\nsrv:/h - /home nfs - yes rw\n";

class CacheOnlyClient : public CacheletSystem {
protected:
    void SetUp() override {
        CacheletSystem::SetUp();
        if (IsSkipped())
            return;
        write("/var/sadm/pkg/KTVXqsvu/pkginfo", "ARCH=i386\n");
        write("/var/sadm/pkg/KTVXqsvr/pkginfo", "ARCH=i386\n");
        write("/etc/bootparams", "c1 root=localhost:/export/root/c1\n");
        write("/export/root/c1/etc/vfstab", table);
        write(data + "/etc/autoinstall/small/one", "one disk\n");
        write(data + "/etc/autoinstall/small/two", "two disks\n");
    }
    void TearDown() override { put_back_commands(); }

    static void put_back_commands() {
        for (const char *command : {"awk", "mv", "cp"})
            fs::remove(std::string("/usr/sbin/") + command);
    }
    // Puts a script before a command of that name: methods look into /usr/sbin first, whatever their caller's PATH.
    static void replace(const std::string &command, const std::string &script) {
        put_back_commands();
        write("/usr/sbin/" + command, "#!/bin/sh\n" + script + "\n");
        fs::permissions("/usr/sbin/" + command, fs::perms(0755));
    }
    // The same for one that stops half-way.
    static void slow_down(const std::string &command, const std::string &half) {
        replace(command, half + "\nexec sleep 6043"); // where it runs it may leave no other mark
    }
    static Ran hostadm_slow(const std::string &arguments) {
        const int status = system((HOSTADM_COMMAND " " + arguments + " >/tmp/slow.output 2>&1").c_str());
        return {WEXITSTATUS(status), content("/tmp/slow.output")};
    }
    static Ran hostadm_as_nobody(const std::string &arguments) {
        const int status = system(("setpriv --reuid 65534 --regid 65534 --clear-groups " HOSTADM_COMMAND " " +
                                   arguments + " >/tmp/command.output 2>&1")
                                      .c_str());
        return {WEXITSTATUS(status), content("/tmp/command.output")};
    }
    // Adds the client while that command is in place, and waits until it has stopped there.
    std::future<Ran> add_slowly() {
        auto adding = std::async(std::launch::async, [this] { return hostadm_slow(add); });
        EXPECT_TRUE(tests::eventually([] { return system("pgrep -fx 'sleep 6043' >/dev/null") == 0; }));
        return adding;
    }
    // The older of the two processes of that name answers for the other.
    static void interrupt(const std::string &signal) {
        system(("pkill -o -x -" + signal + " add_cachelet").c_str());
    }
    Ran add_interrupted(const std::string &signal) {
        auto adding = add_slowly();
        interrupt(signal);
        return adding.get();
    }
    // Everything in the client's root, and what lies in /tmp of an edit.
    static std::string snapshot() {
        return output_of("cd /export/root/c1 && find . -printf '%p %y %m %U:%G %s %l\\n' | sort;"
                         "find . -type f | sort | xargs cat; ls /tmp | grep -E '^(awk|vfstab)\\.'");
    }
    static std::string output_of(const std::string &command) {
        system(("(" + command + ") >/tmp/command.output 2>&1").c_str());
        return content("/tmp/command.output");
    }
    const std::string add = "run client/add_cachelet hostname=c1 profile_set=small profile=one";
};

} // namespace

TEST_F(CacheOnlyClient, CacheIsEnabledAndDisabled) {
    EXPECT_THAT(hostadm("run cachelet/enable_cache root=/export/root/c1").output,
                HasSubstr("result   done\nchanged  yes"));
    EXPECT_THAT(content("/export/root/c1/etc/vfstab"), HasSubstr("/usr nfs - no ro,disconnectable\n"));
    EXPECT_TRUE(fs::is_directory("/export/root/c1/etc/fs/cachefs"));
    EXPECT_THAT(hostadm("run cachelet/enable_cache root=/export/root/c1").output,
                HasSubstr("result   unchanged\nchanged  no"));
    EXPECT_THAT(hostadm("run cachelet/disable_cache root=/export/root/c1").output, HasSubstr("done"));
    EXPECT_EQ(content("/export/root/c1/etc/vfstab"), table);
    EXPECT_THAT(hostadm("run cachelet/disable_cache root=/export/root/c1").output, HasSubstr("unchanged"));
}

TEST_F(CacheOnlyClient, RootMustBeAClientsOwn) {
    EXPECT_THAT(hostadm("run cachelet/enable_cache root=/").output, HasSubstr("own root"));
    EXPECT_THAT(hostadm("run cachelet/enable_cache root=/no/client").output, HasSubstr("is no directory"));
    write("/export/root/c1/etc/vfstab", "srv:/h - /home nfs - yes rw\n");
    EXPECT_THAT(hostadm("run cachelet/enable_cache root=/export/root/c1").output,
                HasSubstr("nothing to cache"));
}

TEST_F(CacheOnlyClient, TableIsChangedInItsLastColumnOnly) {
    const std::string enable = "run cachelet/enable_cache root=/export/root/c1",
                      disable = "run cachelet/disable_cache root=/export/root/c1";
    const auto expect_refused = [](const std::string &method, const std::string &line) {
        const std::string before = table + line + "\n";
        write("/export/root/c1/etc/vfstab", before);
        const Ran ran = hostadm(method);
        EXPECT_EQ(ran.status, 1) << line;
        EXPECT_THAT(ran.output,
                    HasSubstr("nothing was changed: /export/root/c1/etc/vfstab has the line \"" + line));
        EXPECT_EQ(content("/export/root/c1/etc/vfstab"), before);
        EXPECT_FALSE(fs::exists("/export/root/c1/etc/fs"));
    };
    expect_refused(enable, "srv:/ow - /usr/openwin nfs - no");
    expect_refused(enable, "srv:/ow - /usr/openwin nfs - no ro ");
    expect_refused(enable, "srv:/ow - /usr/openwin nfs - no ro # ours");
    expect_refused(disable, "srv:/a,disconnectable - /a nfs - no ro");
    expect_refused(disable, "srv:/a - /a nfs - no ,disconnectable");
    expect_refused(disable, "srv:/a - /a nfs - no ro ,disconnectable");
    write("/export/root/c1/etc/vfstab", table + "#srv:/a,disconnectable\n\nfd - /dev/fd fd - no\nx\n");
    EXPECT_EQ(hostadm(enable).status, 0) << "other lines do not matter";
    EXPECT_EQ(hostadm(disable).status, 0);
}

TEST_F(CacheOnlyClient, ProfileIsSetAndChecked) {
    const std::string set = "run cachelet/set_disk_profile root=/export/root/c1 profile_set=small profile=";
    EXPECT_THAT(hostadm(set + "one").output, HasSubstr("done"));
    EXPECT_THAT(hostadm(set + "one").output, HasSubstr("unchanged"));
    EXPECT_THAT(hostadm(set + "two").output, HasSubstr("done"));
    EXPECT_EQ(fs::read_symlink("/export/root/c1/.autoinstall/profile"), "two");
    EXPECT_EQ(content("/export/root/c1/.autoinstall/one"), "one disk\n");
    EXPECT_THAT(hostadm(set + "three").output, HasSubstr("there are: one, two"));
    for (const std::string &name : {std::string("profile"), std::string(".."), std::string(".")}) {
        const Ran refused = hostadm(set + name);
        EXPECT_EQ(refused.status, 2) << name;
        EXPECT_THAT(refused.output, HasSubstr("is no name of a profile")) << name;
    }
    const Ran refused =
        hostadm("run cachelet/set_disk_profile root=/export/root/c1 profile_set=.. profile=one");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.output, HasSubstr("profile_set: .. is no name of a set of profiles"));
    EXPECT_EQ(fs::read_symlink("/export/root/c1/.autoinstall/profile"), "two");
}

TEST_F(CacheOnlyClient, SecondRunChangesNothing) {
    const Ran first = hostadm(add);
    EXPECT_EQ(first.status, 0);
    EXPECT_THAT(first.output, HasSubstr("cached mounts    done"));
    EXPECT_THAT(first.output, HasSubstr("disk profile     done"));
    struct stat before = {}, after = {};
    stat("/export/root/c1/etc/vfstab", &before);
    const Ran second = hostadm(add);
    EXPECT_EQ(second.status, 0);
    EXPECT_THAT(second.output, HasSubstr("cached mounts    unchanged"));
    EXPECT_THAT(second.output, HasSubstr("disk profile     unchanged"));
    stat("/export/root/c1/etc/vfstab", &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(CacheOnlyClient, IsToldAndListedAsOne) {
    EXPECT_EQ(hostadm(add).status, 0);
    EXPECT_EQ(content("/etc/bootparams"), "c1 root=localhost:/export/root/c1 boottype=:ca\n");
    EXPECT_THAT(hostadm("run client/list").output, HasSubstr("cache-only"));
}

TEST_F(CacheOnlyClient, OneRequestTakesAllOfItBack) {
    const std::string before = snapshot();
    EXPECT_EQ(hostadm(add).status, 0);
    const Ran removed = hostadm("run client/remove_cachelet hostname=c1");
    EXPECT_EQ(removed.status, 0) << removed.output;
    EXPECT_THAT(removed.output, HasSubstr("changed  yes"));
    EXPECT_EQ(content("/export/root/c1/etc/vfstab"), table);
    EXPECT_FALSE(fs::exists("/export/root/c1/.autoinstall"));
    EXPECT_FALSE(fs::exists("/export/root/c1/etc/fs/cachefs"));
    EXPECT_EQ(content("/etc/bootparams"), "c1 root=localhost:/export/root/c1 boottype=:di\n");
    EXPECT_THAT(hostadm("run client/remove_cachelet hostname=c1").output, HasSubstr("changed  no"));
    fs::remove_all("/export/root/c1/etc/fs");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(CacheOnlyClient, TakingBackLeavesOtherProfilesAlone) {
    EXPECT_EQ(hostadm(add).status, 0);
    write("/export/root/c1/.autoinstall/mine", "mine\n");
    EXPECT_EQ(hostadm("run client/remove_cachelet hostname=c1").status, 0);
    EXPECT_EQ(content("/export/root/c1/.autoinstall/mine"), "mine\n");
    EXPECT_FALSE(fs::exists("/export/root/c1/.autoinstall/one"));
}

TEST_F(CacheOnlyClient, TakingBackThatFailsLeavesItAsItWas) {
    EXPECT_EQ(hostadm(add).status, 0);
    const std::string before = snapshot();
    write("/usr/sbin/mv", "#!/bin/sh\nexit 1\n");
    fs::permissions("/usr/sbin/mv", fs::perms(0755));
    EXPECT_EQ(hostadm_slow("run client/remove_cachelet hostname=c1").status, 1);
    EXPECT_EQ(snapshot(), before);
    EXPECT_THAT(content("/etc/bootparams"), HasSubstr("boottype=:ca"));
}

TEST_F(CacheOnlyClient, MustBeADisklessClientOfThisServer) {
    const std::string before = snapshot();
    const std::string nobody = "run client/add_cachelet hostname=nobody profile_set=small profile=one";
    EXPECT_THAT(hostadm(nobody).output, HasSubstr("there is no client nobody"));
    EXPECT_THAT(hostadm(add + " root=/export/root/other").output, HasSubstr("is not the root of c1"));
    write("/etc/bootparams", "c1 root=elsewhere.invalid:/export/root/c1\n");
    EXPECT_THAT(hostadm(add).output, HasSubstr("is not on this server"));
    write("/etc/bootparams", "c1 install=localhost:/export/install boottype=:in\n");
    EXPECT_THAT(hostadm(add).output, HasSubstr("of the kind install"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(CacheOnlyClient, NeedsAServerThatIsPrepared) {
    fs::remove_all("/var/sadm/pkg/KTVXqsvr");
    const std::string before = snapshot();
    const Ran refused = hostadm(add + " setup=no");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.output, HasSubstr("hostadm run service/setup_cachelet_server prepares it"));
    const Ran without_package = hostadm(add);
    EXPECT_EQ(without_package.status, 1);
    EXPECT_THAT(without_package.output, HasSubstr("(error 96)"));
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(content("/etc/bootparams"), "c1 root=localhost:/export/root/c1\n");
}

TEST_F(CacheOnlyClient, MissingProfileChangesNothing) {
    EXPECT_EQ(hostadm("run client/add_cachelet hostname=c1 profile_set=small profile=none").status, 1);
    EXPECT_EQ(content("/export/root/c1/etc/vfstab"), table);
    EXPECT_FALSE(fs::exists("/export/root/c1/etc/fs/cachefs"));
}

TEST_F(CacheOnlyClient, FailedProfileTakesTheMountsBack) {
    write("/export/root/c1/.autoinstall", "a file in the way\n");
    EXPECT_EQ(hostadm(add).status, 1);
    EXPECT_EQ(content("/export/root/c1/etc/vfstab"), table);
    EXPECT_FALSE(fs::exists("/export/root/c1/etc/fs/cachefs"));
}

TEST_F(CacheOnlyClient, TableThatCannotBeMovedIntoPlaceIsAFailure) {
    const std::string before = snapshot();
    for (const char *script : {"exit 1", "echo 'mv: no space' >&2; exit 1"}) {
        replace("mv", script);
        for (const std::string &method :
             {std::string("run cachelet/enable_cache root=/export/root/c1"), add}) {
            const Ran ran = hostadm_slow(method);
            EXPECT_EQ(ran.status, 1);
            EXPECT_THAT(ran.output, HasSubstr("could not be moved over /export/root/c1/etc/vfstab"));
        }
    }
    fs::remove_all("/export/root/c1/etc/fs");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(CacheOnlyClient, NeitherTableNorDirectoryIsAFailureWithItsReason) {
    write("/export/root/c1/etc/fs", "in the way of the directory");
    replace("mv", "exit 1");
    const Ran ran = hostadm_slow("run cachelet/enable_cache root=/export/root/c1");
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.output, "hostadm: cachelet/enable_cache: the new table could not be moved over "
                          "/export/root/c1/etc/vfstab (error 117)\n");
}

TEST_F(CacheOnlyClient, TableThatIsNoFileOrHiddenIsToldSo) {
    const std::string enable = "run cachelet/enable_cache root=/export/root/c1";
    fs::permissions("/export/root/c1/etc", fs::perms::none);
    EXPECT_THAT(hostadm_as_nobody(enable).output,
                HasSubstr("cannot look at /export/root/c1/etc/vfstab: Permission denied"));
    fs::permissions("/export/root/c1/etc", fs::perms(0755));
    fs::remove("/export/root/c1/etc/vfstab");
    EXPECT_THAT(hostadm(enable).output, HasSubstr("/export/root/c1/etc/vfstab does not exist, so"));
    fs::create_directory("/export/root/c1/etc/vfstab");
    EXPECT_THAT(hostadm(enable).output, HasSubstr("/export/root/c1/etc/vfstab is no file, so"));
    fs::remove("/export/root/c1/etc/vfstab");
}

TEST_F(CacheOnlyClient, FailedEditLeavesNothingInTmp) {
    const std::string before = snapshot();
    replace("awk", "echo 'awk: half'; exit 2");
    EXPECT_THAT(hostadm_slow(add).output, HasSubstr("(error 37)"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(CacheOnlyClient, GoesAgainWhenTheRunIsInterrupted) {
    chmod("/export/root/c1/etc/vfstab", 0640);
    ASSERT_EQ(chown("/export/root/c1/etc/vfstab", 12, 34), 0);
    for (const auto &[command, half] :
         {std::pair{"awk", ":"}, {"mv", ": >\"$2\""}, {"mv", "rm \"$2\""}, {"cp", "echo half >\"$2\""}})
        for (const char *signal : {"INT", "TERM"}) {
            slow_down(command, half);
            const std::string before = snapshot();
            const Ran added = add_interrupted(signal);
            EXPECT_EQ(added.status, 1) << half;
            EXPECT_THAT(added.output, HasSubstr(std::string("add_cachelet: interrupted (SIG") + signal + ")"))
                << half;
            EXPECT_THAT(added.output, HasSubstr("everything that was done for c1 has been taken back"))
                << half;
            EXPECT_THAT(added.output, Not(HasSubstr("cached mounts"))) << half;
            EXPECT_EQ(snapshot(), before) << half;
        }
    put_back_commands();
    EXPECT_EQ(hostadm(add).status, 0);
}

TEST_F(CacheOnlyClient, GetsItsEarlierProfileBackWhenTheRunIsInterrupted) {
    write("/export/root/c1/.autoinstall/one", "an older one\n");
    fs::permissions("/export/root/c1/.autoinstall/one", fs::perms::owner_read);
    fs::create_symlink("two", "/export/root/c1/.autoinstall/profile");
    fs::create_directories("/export/root/c1/etc/fs/cachefs");
    slow_down("cp", "echo half >\"$2\"; ln -sfn one \"${2%/*}/profile\"");
    const std::string before = snapshot();
    EXPECT_EQ(add_interrupted("TERM").status, 1);
    EXPECT_EQ(snapshot(), before);
}

TEST_F(CacheOnlyClient, IsWorkedOnByOneRunAtATime) {
    slow_down("awk", ":");
    auto first = add_slowly();
    const Ran second = hostadm(add);
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.output, HasSubstr("somebody else is working on c1"));
    interrupt("TERM");
    first.get();
}

TEST_F(CacheOnlyClient, LinksDoNotLeadOutOfItsRoot) {
    write("/etc/vfstab", table);
    write("/outside/one", "precious\n");
    const std::string root = "/export/root/c1/";
    const auto expect_refused = [&](const std::string &text) {
        const Ran ran = hostadm(add);
        EXPECT_EQ(ran.status, 1);
        EXPECT_THAT(ran.output, HasSubstr(text));
        EXPECT_EQ(content("/etc/vfstab"), table);
        EXPECT_EQ(content("/outside/one"), "precious\n");
    };
    fs::create_symlink("/outside", root + ".autoinstall");
    expect_refused("/export/root/c1/.autoinstall leads out of the client's root, to /outside");
    fs::remove(root + ".autoinstall");
    write(root + ".autoinstall/other", "");
    fs::create_symlink("/outside/one", root + ".autoinstall/one");
    expect_refused("/.autoinstall/one is a link, where the profile is to be; remove it");
    fs::remove_all(root + "etc");
    fs::create_symlink("/etc", root + "etc");
    expect_refused("/export/root/c1/etc/vfstab leads out of the client's root, to /etc/vfstab");
    EXPECT_THAT(hostadm("run cachelet/enable_cache root=/export/root/c1").output, HasSubstr("leads out"));
    fs::remove(root + "etc");
    write(root + "private/etc/vfstab", table);
    fs::create_symlink("private/etc", root + "etc");
    fs::remove(root + ".autoinstall/one");
    EXPECT_EQ(hostadm(add).status, 0) << "a link inside is one of its own";
    EXPECT_THAT(content(root + "private/etc/vfstab"), HasSubstr("disconnectable"));
    fs::remove("/etc/vfstab");
    fs::remove_all("/outside");
}

TEST_F(CacheOnlyClient, ProbeTellsItsStateAndRefusesBadArguments) {
    EXPECT_THAT(hostadm("run host/ping_rpc host=127.0.0.1 program=mountd timeout=2").output,
                HasSubstr("silent"));
    EXPECT_THAT(hostadm("run host/ping_rpc host=no-such-host.invalid program=100000").output,
                HasSubstr("unknown_host"));
    EXPECT_EQ(hostadm("run host/ping_rpc host=127.0.0.1 program=no-such-program").status, 2);
    EXPECT_EQ(hostadm("run host/ping_rpc host=127.0.0.1 program=100000 version=0").status, 2);
    EXPECT_EQ(hostadm("run host/ping_rpc host=127.0.0.1 program=100000 timeout=0").status, 2);
}
