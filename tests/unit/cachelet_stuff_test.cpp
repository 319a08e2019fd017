// SPDX-License-Identifier: MIT
// Cached mounts of a client's table, its install profile, service packages and templates: the rules, with
// stand-ins for the commands. Where a table is edited the real awk and mv run, on a table of the test's own.
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/fake_platform.hpp"
#include "support/scratch.hpp"

namespace {

namespace fs = std::filesystem;
using fakes::Recorded;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::content;

const std::string enabling_program =
    "{\t    if(substr($0,1,1) != \"#\" ) { \t\tif (index($0, \"disconnectable\") == 0) { \t\t    if ($3 == "
    "\"/\" || $3 == \"/usr\") { \t\t\tprint $0 \",disconnectable\" \t\t    } else { \t\t\tif ($3 == "
    "\"/usr/openwin\") { \t\t\t    print $0 \",disconnectable\" \t\t\t} else { \t\t\t    print $0 \t\t\t} "
    "\t\t    } \t\t} else print $0 \t    } else print $0 \t    }";
const std::string disabling_program =
    "{\t    if(substr($0,1,1) != \"#\" ) { \t\tif(i = index($0,\",disconnectable\")) { \t\t    print "
    "substr($0,1,i-1) \t\t} else { \t\t    if(i = index($0,\",disconnectable\")) { \t\t\tprint "
    "substr($0,1,i-1) \t\t    } else print $0 \t\t} \t    } else print $0 \t    }";

bool fprintf_fails = false;

std::string with_pid(const std::string &name) {
    return name + std::to_string(getpid());
}

std::vector<Recorded> errors() {
    return fakes::framework().errors;
}

mode_t mode_of(const std::string &path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// No file of the process grows beyond that size while the object lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    rlimit before_{};
    void (*handler_)(int);
};

class Cachelet : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        fprintf_fails = false;
    }
    void TearDown() override {
        fprintf_fails = false;
        for (const std::string &name : {program_file, output_file, admin_file})
            fs::remove_all(name);
    }

    const std::string program_file = with_pid("/tmp/awk.");
    const std::string output_file = with_pid("/tmp/vfstab.");
    const std::string admin_file = with_pid("/tmp/pkgadmin.");
    tests::Scratch scratch;
};

// A client root with a mount table; awk and mv really run.
class Chart : public Cachelet {
protected:
    void SetUp() override {
        Cachelet::SetUp();
        fakes::commands().real = true;
        fs::create_directories(scratch.path("etc/fs"));
        root = scratch.path();
    }
    void table(const std::string &text) { scratch.write("etc/vfstab", text); }
    std::string table() { return content(scratch.path("etc/vfstab")); }

    std::string root;
};

// What an operation writes as its program; the awk found first in PATH keeps a copy.
std::string program_of(int (*operation)(const char *), const tests::Scratch &scratch) {
    const std::string copy = scratch.path("program");
    scratch.write("bin/awk", "#!/bin/sh\ncp \"$2\" " + copy + "\nexec /usr/bin/awk \"$@\"\n");
    fs::permissions(scratch.path("bin/awk"), fs::perms::owner_all);
    const std::string path = std::getenv("PATH");
    setenv("PATH", (scratch.path("bin") + ":" + path).c_str(), 1);
    EXPECT_EQ(operation(scratch.path().c_str()), 0);
    setenv("PATH", path.c_str(), 1);
    return content(copy);
}

} // namespace

extern "C" int fprintf(FILE *stream, const char *format, ...) {
    if (fprintf_fails) {
        errno = EIO;
        return 0;
    }
    va_list args;
    va_start(args, format);
    const int length = std::vfprintf(stream, format, args);
    va_end(args);
    return length;
}

TEST_F(Chart, ProgramsAreWrittenToTheCharacter) {
    table("");
    EXPECT_EQ(program_of(enable_chart, scratch), enabling_program);
    EXPECT_EQ(program_of(disable_chart, scratch), disabling_program);
}

TEST_F(Chart, EnableAppendsTheOptionToTheThreeFileSystems) {
    table("#device\tfsck\tmount\n"
          "srv:/export/root/c1 - / nfs - no rw\n"
          "srv:/export/exec/usr\t-\t/usr\tnfs\t-\tno\t-\n"
          "srv:/export/ow - /usr/openwin nfs - yes ro\n"
          "srv:/home - /home nfs - yes rw\n"
          "\n"
          "#srv:/x - / nfs - no rw\n");
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    EXPECT_EQ(table(), "#device\tfsck\tmount\n"
                       "srv:/export/root/c1 - / nfs - no rw,disconnectable\n"
                       "srv:/export/exec/usr\t-\t/usr\tnfs\t-\tno\t-,disconnectable\n"
                       "srv:/export/ow - /usr/openwin nfs - yes ro,disconnectable\n"
                       "srv:/home - /home nfs - yes rw\n"
                       "\n"
                       "#srv:/x - / nfs - no rw\n");
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Chart, EnableTwiceIsAsOnce) {
    table("srv:/r - / nfs - no rw\n");
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    EXPECT_EQ(table(), "srv:/r - / nfs - no rw,disconnectable\n");
}

TEST_F(Chart, EnableLeavesALineThatHoldsTheWordAnywhere) {
    table("srv:/disconnectable - / nfs - no rw\n");
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    EXPECT_EQ(table(), "srv:/disconnectable - / nfs - no rw\n");
}

TEST_F(Chart, DisableDropsTheOptionAndWhatFollows) {
    table("srv:/r - / nfs - no rw,disconnectable,soft\n"
          "srv:/home - /home nfs - no ro,disconnectable\n"
          "srv:/x - /x nfs - no disconnectable\n"
          "#srv:/r - / nfs - no rw,disconnectable\n");
    EXPECT_EQ(disable_chart(root.c_str()), 0);
    EXPECT_EQ(table(), "srv:/r - / nfs - no rw\n"
                       "srv:/home - /home nfs - no ro\n"
                       "srv:/x - /x nfs - no disconnectable\n"
                       "#srv:/r - / nfs - no rw,disconnectable\n");
}

TEST_F(Chart, DisableUndoesEnable) {
    const std::string before = "srv:/r - / nfs - no rw\nsrv:/u - /usr nfs - no ro\n";
    table(before);
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    EXPECT_EQ(disable_chart(root.c_str()), 0);
    EXPECT_EQ(table(), before);
}

TEST_F(Chart, RunsTheCommandsInOrder) {
    table("");
    enable_chart(root.c_str());
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("awk -f " + program_file + " " + root + "/etc/vfstab > " + output_file,
                            "mv " + output_file + " " + root + "/etc/vfstab"));
    EXPECT_FALSE(fs::exists(program_file));
    EXPECT_FALSE(fs::exists(output_file));
}

TEST_F(Chart, TableKeepsModeAndOwner) {
    table("srv:/r - / nfs - no rw\n");
    chmod((root + "/etc/vfstab").c_str(), 0664);
    const bool may_chown = chown((root + "/etc/vfstab").c_str(), 12, 34) == 0;
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    struct stat status = {};
    ASSERT_EQ(stat((root + "/etc/vfstab").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0664u);
    if (may_chown) {
        EXPECT_EQ(status.st_uid, 12u);
        EXPECT_EQ(status.st_gid, 34u);
    }
}

TEST_F(Chart, CacheDirectoryIsMadeAndRemoved) {
    table("");
    const mode_t mask = umask(0);
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    umask(mask);
    EXPECT_EQ(mode_of(root + "/etc/fs/cachefs"), 0775u);
    EXPECT_EQ(enable_chart(root.c_str()), 0) << "an existing directory is no obstacle";
    EXPECT_EQ(disable_chart(root.c_str()), 0);
    EXPECT_FALSE(fs::exists(root + "/etc/fs/cachefs"));
    EXPECT_EQ(disable_chart(root.c_str()), 0) << "nor is a missing one";
}

TEST_F(Chart, CacheDirectoryThatHoldsFilesStays) {
    table("");
    scratch.write("etc/fs/cachefs/config", "x");
    EXPECT_EQ(disable_chart(root.c_str()), 0);
    EXPECT_TRUE(fs::exists(root + "/etc/fs/cachefs/config"));
}

TEST_F(Chart, CacheDirectoryThatCannotBeMadeFailsSilently) {
    table("");
    fs::remove(scratch.path("etc/fs"));
    EXPECT_EQ(enable_chart(root.c_str()), 1);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Chart, MissingTableFailsInAwk) {
    EXPECT_EQ(enable_chart(root.c_str()), 1);
    EXPECT_EQ(disable_chart(root.c_str()), 1);
    ASSERT_EQ(errors().size(), 2u);
    for (const Recorded &error : errors()) {
        EXPECT_EQ(error.code, 37);
        EXPECT_THAT(error.text, testing::StartsWith("37||awk|"));
    }
    EXPECT_FALSE(fs::exists(program_file));
    EXPECT_TRUE(fs::exists(output_file));
    EXPECT_FALSE(fs::exists(root + "/etc/vfstab"));
    EXPECT_FALSE(fs::exists(root + "/etc/fs/cachefs"));
}

TEST_F(Chart, ProgramFileThatCannotBeOpened) {
    table("x\n");
    fs::create_directories(program_file);
    EXPECT_EQ(enable_chart(root.c_str()), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{37, "37||fopen|Is a directory"}));
    EXPECT_THAT(fakes::commands().lines, IsEmpty());
    EXPECT_EQ(table(), "x\n");
}

TEST_F(Chart, ProgramThatCannotBeWrittenStaysWhereItIs) {
    table("x\n");
    fprintf_fails = true;
    EXPECT_EQ(disable_chart(root.c_str()), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{37, "37||fprintf|Input/output error"}));
    EXPECT_TRUE(fs::exists(program_file));
    EXPECT_THAT(fakes::commands().lines, IsEmpty());
}

TEST_F(Chart, ProgramCutShortByAFullDiskNeverRuns) {
    table("x\n");
    {
        const FileSizeLimit limit(10);
        EXPECT_EQ(enable_chart(root.c_str()), 1);
    }
    EXPECT_THAT(errors(), ElementsAre(Recorded{37, "37||fprintf|File too large"}));
    EXPECT_THAT(fakes::commands().lines, IsEmpty());
    EXPECT_EQ(table(), "x\n");
}

TEST_F(Chart, OutputCutShortByAFullDiskLeavesTheTable) {
    const std::string before = std::string(200000, 'x') + "\n";
    table(before);
    {
        const FileSizeLimit limit(100000);
        EXPECT_EQ(enable_chart(root.c_str()), 1);
    }
    ASSERT_EQ(errors().size(), 1u);
    EXPECT_THAT(errors()[0].text, HasSubstr("37||awk|"));
    EXPECT_EQ(table(), before);
}

TEST_F(Chart, FailedMoveIsNotReported) {
    table("srv:/r - / nfs - no rw\n");
    scratch.write("bin/mv", "#!/bin/sh\nexit 1\n");
    fs::permissions(scratch.path("bin/mv"), fs::perms::owner_all);
    const std::string path = std::getenv("PATH");
    setenv("PATH", (scratch.path("bin") + ":" + path).c_str(), 1);
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(table(), "srv:/r - / nfs - no rw\n");
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Chart, PlantedLinksAreNotFollowed) {
    const std::string victim = scratch.write("victim", "precious\n");
    table("srv:/r - / nfs - no rw\n");
    fs::create_symlink(victim, program_file);
    fs::create_symlink(victim, output_file);
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    EXPECT_EQ(content(victim), "precious\n");
    EXPECT_EQ(table(), "srv:/r - / nfs - no rw,disconnectable\n");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root + "/etc/vfstab")));
}

TEST_F(Chart, PlantedFilesAreNotWrittenThrough) {
    const std::string others = scratch.write("others", "precious\n");
    table("srv:/r - / nfs - no rw\n");
    fs::create_hard_link(others, program_file);
    fs::create_hard_link(others, output_file);
    EXPECT_EQ(enable_chart(root.c_str()), 0);
    EXPECT_EQ(content(others), "precious\n");
}

TEST_F(Chart, OutputNameThatIsADirectoryFailsInAwk) {
    table("x\n");
    fs::create_directories(output_file);
    EXPECT_EQ(enable_chart(root.c_str()), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{37, "37||awk|Is a directory"}));
    EXPECT_EQ(table(), "x\n");
}

TEST_F(Chart, RootPathOfAnyLength) {
    std::string deep = root;
    for (int i = 0; i < 12; ++i)
        deep += "/" + std::string(200, 'd');
    fs::create_directories(deep + "/etc/fs");
    std::ofstream(deep + "/etc/vfstab") << "srv:/r - / nfs - no rw\n";
    EXPECT_EQ(enable_chart(deep.c_str()), 0);
    EXPECT_EQ(content(deep + "/etc/vfstab"), "srv:/r - / nfs - no rw,disconnectable\n");
}

// ---- disk profile ----

TEST_F(Cachelet, DiskProfileIsCopiedAndLinked) {
    fs::create_directories(scratch.path(".autoinstall"));
    const std::string root = scratch.path();
    EXPECT_EQ(set_cachelet_disk_config("add_client", root.c_str(), "small", "one_disk"), 0);
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("/usr/bin/mkdir " + root + "/.autoinstall",
                            "set -f ; cp /opt/KTVXmgrd/2.2/etc/autoinstall/small/one_disk " + root +
                                "/.autoinstall/one_disk"));
    EXPECT_EQ(fs::read_symlink(root + "/.autoinstall/profile"), "one_disk");
    EXPECT_EQ(set_cachelet_disk_config("add_client", root.c_str(), "small", "two_disks"), 0);
    EXPECT_EQ(fs::read_symlink(root + "/.autoinstall/profile"), "two_disks");
}

TEST_F(Cachelet, DiskProfileThatCannotBeCopiedLeavesTheLink) {
    fs::create_directories(scratch.path(".autoinstall"));
    fs::create_symlink("old", scratch.path(".autoinstall/profile"));
    fakes::commands().answers = {{.contains = "cp ", .status = 256}};
    EXPECT_EQ(set_cachelet_disk_config("add_client", scratch.path().c_str(), "small", "none"), 1);
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{44, "44|add_client|/opt/KTVXmgrd/2.2/etc/autoinstall/small/none"}));
    EXPECT_EQ(fs::read_symlink(scratch.path(".autoinstall/profile")), "old");
}

TEST_F(Cachelet, DiskProfileLinkThatCannotBeMadeIsNotReported) {
    fs::create_directories(scratch.path(".autoinstall/profile/in_the_way"));
    EXPECT_EQ(set_cachelet_disk_config("add_client", scratch.path().c_str(), "small", "one"), 0);
    EXPECT_THAT(errors(), IsEmpty());
}

// ---- service packages ----

TEST_F(Cachelet, AdminFileWaivesAllButSpace) {
    char *name = make_admin_file("/usr_i386.all");
    EXPECT_EQ(name, admin_file);
    EXPECT_EQ(content(name), "mail=\ninstance=unique\npartial=nocheck\nrunlevel=nocheck\nidepend=nocheck\n"
                             "rdepend=nocheck\nspace=quit\nsetuid=nocheck\nconflict=nocheck\naction=nocheck\n"
                             "basedir=/usr_i386.all\n");
    EXPECT_EQ(mode_of(name), 0600u);
    EXPECT_EQ(make_admin_file("/"), name) << "one buffer for all calls";
    EXPECT_THAT(content(name), HasSubstr("basedir=/\n"));
}

TEST_F(Cachelet, AdminFileFollowsNoPlantedLink) {
    const std::string victim = scratch.write("victim", "precious\n");
    fs::create_symlink(victim, admin_file);
    EXPECT_THAT(content(make_admin_file("/")), HasSubstr("basedir=/\n"));
    EXPECT_EQ(content(victim), "precious\n");
}

TEST_F(Cachelet, AdminFileThatCannotBeWrittenIsMissing) {
    fs::create_directories(admin_file);
    EXPECT_EQ(make_admin_file("/"), admin_file);
    fs::remove(admin_file);
    {
        const FileSizeLimit limit(20);
        EXPECT_EQ(make_admin_file("/"), admin_file);
    }
    EXPECT_FALSE(fs::exists(admin_file));
}

namespace {

// A directory with the package "KTVXqcu", on a server of
// release 5.5 and architecture i386 that lacks every package.
class Packages : public Cachelet {
protected:
    void SetUp() override {
        Cachelet::SetUp();
        scratch.write("KTVXqcu/pkginfo", "VERSION=1\n");
        directory = scratch.path();
        fakes::commands().answers = {{.contains = "grep ARCH=", .status = 256}};
    }
    int add(const char *arch, const char *release, const char *package = "KTVXqcu") {
        return do_cachelet_pkgadd("setup", arch, release, directory.c_str(), package);
    }
    std::string last_command() { return fakes::commands().lines.back(); }
    // The log's name in the pkgadd command that ran last.
    std::string log_name() {
        const std::string line = last_command();
        const std::size_t begin = line.find(">> ") + 3;
        return line.substr(begin, line.find(' ', begin) - begin);
    }

    std::string directory;
};

} // namespace

TEST_F(Packages, InstalledPackageIsLeftAlone) {
    fakes::commands().answers.clear();
    EXPECT_EQ(add("i386", "2.5"), 0);
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("grep ARCH=i386 /var/sadm/pkg/KTVXqcu*/pkginfo >/dev/null 2>&1"));
    EXPECT_FALSE(fs::exists(admin_file));
}

TEST_F(Packages, InstalledTestLooksIntoTheServiceOfAnotherRelease) {
    fakes::commands().answers.clear();
    EXPECT_EQ(add("i386", "2.4"), 0);
    EXPECT_THAT(
        fakes::commands().lines,
        ElementsAre("grep ARCH=i386 /export/Quorvel_2.4/var/sadm/pkg/KTVXqcu*/pkginfo > /dev/null 2>&1"));
}

TEST_F(Packages, InstalledTestOfTheOwnReleaseLooksAtTheServerForAnyArchitecture) {
    EXPECT_EQ(add("ppc", "2.5"), 0);
    ASSERT_EQ(fakes::commands().lines.size(), 2u);
    EXPECT_EQ(fakes::commands().lines[0], "grep ARCH=ppc /var/sadm/pkg/KTVXqcu*/pkginfo >/dev/null 2>&1");
    EXPECT_EQ(fakes::commands().lines[1], "/usr/sbin/pkgadd -S -R /export/Quorvel_2.5 -a " + admin_file +
                                              " -d " + directory + " KTVXqcu >> " + log_name() + " 2>&1");
}

TEST_F(Packages, OwnReleaseAndArchitectureGoOntoTheServer) {
    EXPECT_EQ(add("i386", "5.5"), 0);
    EXPECT_EQ(last_command(), "/usr/sbin/pkgadd -S -a " + admin_file + " -d " + directory + " KTVXqcu >> " +
                                  log_name() + " 2>&1");
    EXPECT_THAT(log_name(), testing::MatchesRegex("/tmp/pkgadd\\.[A-Za-z0-9]{6}"));
}

TEST_F(Packages, OtherReleaseGoesIntoTheServiceTree) {
    EXPECT_EQ(add("i386", "2.4"), 0);
    EXPECT_THAT(last_command(), HasSubstr("pkgadd -S -R /export/Quorvel_2.4 -a "));
}

TEST_F(Packages, AdminFileAndLogAreGoneAfterwards) {
    EXPECT_EQ(add("i386", "2.5"), 0);
    EXPECT_FALSE(fs::exists(admin_file));
    EXPECT_FALSE(fs::exists(log_name()));
}

TEST_F(Packages, MissingPackageIsNotInstalled) {
    EXPECT_EQ(add("i386", "2.5", "KTVXnone"), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{96, "96|setup|" + directory + "/KTVXnone"}));
    EXPECT_EQ(fakes::commands().lines.size(), 1u);
    EXPECT_THAT(fakes::framework().cleanups, IsEmpty());
}

TEST_F(Packages, FailedInstallationGivesItsStatusAndItsLog) {
    fakes::commands().answers.push_back({.contains = "pkgadd", .status = 768});
    EXPECT_EQ(add("i386", "2.5"), 768);
    EXPECT_THAT(errors(), ElementsAre(Recorded{21, "Method setup: pkgadd of package in " + directory +
                                                       " failed with error:\n"}));
    EXPECT_THAT(fakes::framework().cleanups, ElementsAre(2));
    EXPECT_FALSE(fs::exists(admin_file));
    EXPECT_FALSE(fs::exists(log_name()));
}

TEST_F(Packages, ReleaseTooShortToHoldAMinorNumber) {
    fakes::commands().answers.clear();
    EXPECT_EQ(add("i386", "2"), 0);
    EXPECT_THAT(last_command(), HasSubstr("/export/Quorvel_2./var/"));
}

TEST_F(Cachelet, FailureWithLogOfTheLargestSizeIsMarkedAsCut) {
    const std::string start = "Method m: pkgadd of package in /d failed with error:\n";
    do_pkgadd_failure("m", "/d", 256, scratch.write("log", std::string(3695, 'x')).c_str());
    do_pkgadd_failure("m", "/d", 256, scratch.write("log", std::string(3696, 'x')).c_str());
    do_pkgadd_failure("m", "/d", 256, scratch.write("log", std::string(9000, 'x')).c_str());
    const Recorded cut{21, start + std::string(3696, 'x') + "....."};
    EXPECT_THAT(errors(), ElementsAre(Recorded{21, start + std::string(3695, 'x')}, cut, cut));
    EXPECT_THAT(fakes::framework().cleanups, ElementsAre(2, 2, 2));
}

TEST_F(Cachelet, FailureWithoutLogTellsTheStatus) {
    do_pkgadd_failure("m", "/d", 256, scratch.path("none").c_str());
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{17, "Method m: pkgadd of package in /d failed, status = 256"}));
    EXPECT_THAT(fakes::framework().cleanups, ElementsAre(2));
}

TEST_F(Cachelet, ServerNeedsBothOfItsPackages) {
    EXPECT_EQ(setup_as_cachelet_server("m"), 0);
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("grep ARCH=i386 /var/sadm/pkg/KTVXqsvu*/pkginfo >/dev/null 2>&1",
                            "grep ARCH=i386 /var/sadm/pkg/KTVXqsvr*/pkginfo >/dev/null 2>&1"));
}

TEST_F(Cachelet, ServerSetUpStopsAtTheFirstFailure) {
    fakes::commands().answers = {{.contains = "grep ARCH=", .status = 256}};
    EXPECT_EQ(setup_as_cachelet_server("m"), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{96, "96|m|/opt/KTVXmgrd/2.2/Packages/i386/5.X/KTVXqsvu"}));
}

TEST_F(Cachelet, ServiceOfALaterReleaseGetsTheClientSupportOnly) {
    EXPECT_EQ(setup_cachelet_service("m", "ppc", "2.5"), 0);
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("grep ARCH=ppc /var/sadm/pkg/KTVXqcu*/pkginfo >/dev/null 2>&1"));
}

TEST_F(Cachelet, ServiceFailureIsOneWhateverTheStatus) {
    fakes::commands().answers = {{.contains = "grep ARCH=", .status = 256}};
    EXPECT_EQ(setup_cachelet_service("m", "ppc", "2.5"), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{96, "96|m|/opt/KTVXmgrd/2.2/Packages/ppc/5.X/KTVXqcu"}));
}

TEST_F(Cachelet, ServiceOfRelease24NeedsTheSupportPackageFirst) {
    fakes::commands().answers = {{.contains = "KTVXmgr5u", .status = 256}};
    EXPECT_EQ(setup_cachelet_service("m", "ppc", "2.4"), 1);
    EXPECT_THAT(
        fakes::commands().lines,
        ElementsAre("grep ARCH=ppc /export/Quorvel_2.4/var/sadm/pkg/KTVXmgr5u*/pkginfo > /dev/null 2>&1"));
    EXPECT_THAT(errors(), ElementsAre(Recorded{96, "96|m|/opt/KTVXmgrd/2.2/Packages/ppc/5.4/KTVXmgr5u"}));
}

// ---- template packages ----

namespace {

constexpr const char *template_path = "/export/root/templates/Quorvel_2.4/KTVXmgr5r_1.0_i386.all";

// A package to be added; nothing is recorded and no older version known.
class Templates : public Cachelet {
protected:
    void SetUp() override {
        Cachelet::SetUp();
        scratch.write("KTVXmgr5r/pkginfo", "VERSION=1.0\n");
        directory = scratch.path();
        fakes::commands().answers = {{.contains = "/usr/bin/sed", .output = "1.0\n"},
                                     {.contains = "grep /export", .status = 256},
                                     {.contains = "grep \"", .status = 256}};
    }
    int add(const char *method = "m") {
        return add_pkg_to_templates(method, directory.c_str(), "KTVXmgr5r", "i386", "2.4");
    }
    void older_version_is_known() { fakes::commands().answers.erase(fakes::commands().answers.begin() + 2); }

    std::string directory;
};

} // namespace

TEST_F(Templates, AdditionRunsItsCommandsInOrder) {
    EXPECT_NE(add(), 0);
    const std::string package = directory + "/KTVXmgr5r";
    const std::string record_file = "/var/sadm/system/admin/services/Quorvel_2.4";
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("/usr/bin/sed -n 's/^VERSION=\\(.*\\)/\\1/p' " + package + "/pkginfo",
                            std::string("grep ") + template_path + " " + record_file + " > /dev/null 2>&1",
                            "grep \"i386.*KTVXmgr5r\" > /dev/null 2>&1",
                            std::string("(set -f ; /usr/bin/mkdir -p ") + template_path +
                                "; /usr/bin/cp -rp " + package + " " + template_path + ") 2>&1",
                            std::string("echo SPOOLED_ROOT=i386.all:") + template_path + " >> " +
                                record_file + "; echo ROOT=i386.all:KTVXmgr5r,1.0 >> " + record_file));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(fakes::commands().open_streams, 0);
}

TEST_F(Templates, CompletedAdditionGivesTheMethodNameAsStatus) {
    const char *method = "add_service";
    EXPECT_EQ(add(method), static_cast<int>(reinterpret_cast<std::uintptr_t>(method)));
}

TEST_F(Templates, CompletedAdditionIsNeverZero) {
    // A name at an address whose low 32 bits are zero.
    EXPECT_NE(add(reinterpret_cast<const char *>(std::uintptr_t{1} << 40)), 0);
    EXPECT_NE(add(nullptr), 0);
}

TEST_F(Templates, RecordedTemplateIsDone) {
    fakes::commands().answers.erase(fakes::commands().answers.begin() + 1);
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(fakes::commands().lines.size(), 2u);
}

TEST_F(Templates, RecordsOfAnOlderServerLieElsewhere) {
    for (const char *release : {"5.4", "5.", "", "5.3.1"}) {
        fakes::platform().sysinfo[3] = release;
        fakes::commands().lines.clear();
        EXPECT_NE(add(), 0);
        EXPECT_THAT(fakes::commands().lines[1], HasSubstr(" /var/sadm/softinfo/Quorvel_2.4 "));
    }
}

TEST_F(Templates, MissingPackage) {
    EXPECT_EQ(add_pkg_to_templates("m", directory.c_str(), "KTVXnone", "i386", "2.4"), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{96, "96|m|" + directory + "/KTVXnone"}));
    EXPECT_THAT(fakes::commands().lines, IsEmpty());
}

TEST_F(Templates, VersionThatCannotBeAskedFor) {
    fakes::commands().answers = {{.contains = "/usr/bin/sed", .starts = false}};
    EXPECT_EQ(add(), 1);
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{21, "Method m: pkgadd of package in " + directory +
                                             "/KTVXmgr5r failed with error:\nCannot allocate memory"}));
    EXPECT_EQ(fakes::commands().lines.size(), 1u);
}

TEST_F(Templates, PackageWithoutVersion) {
    fakes::commands().answers = {{.contains = "/usr/bin/sed", .output = ""}};
    EXPECT_EQ(add(), 1);
    ASSERT_EQ(errors().size(), 1u);
    EXPECT_EQ(errors()[0].code, 21);
    EXPECT_THAT(errors()[0].text, testing::StartsWith("Method m: pkgadd of package in " + directory +
                                                      "/KTVXmgr5r failed with error:\n"));
    EXPECT_EQ(fakes::commands().lines.size(), 1u);
    EXPECT_EQ(fakes::commands().open_streams, 0);
}

TEST_F(Templates, VersionBehindANulIsNone) {
    fakes::commands().answers[0].output = std::string("\0001.0\n", 5);
    EXPECT_EQ(add(), 1);
    ASSERT_EQ(errors().size(), 1u);
    EXPECT_EQ(errors()[0].code, 21);
    EXPECT_EQ(fakes::commands().lines.size(), 1u);
}

TEST_F(Templates, VersionIsTheFirstLineWithoutItsLastCharacter) {
    fakes::commands().answers[0].output = "2.1\n3.0\n";
    add();
    EXPECT_THAT(fakes::commands().lines[1], HasSubstr("/KTVXmgr5r_2.1_i386.all "));
    fakes::commands().lines.clear();
    fakes::commands().answers[0].output = "2.1";
    add();
    EXPECT_THAT(fakes::commands().lines[1], HasSubstr("/KTVXmgr5r_2._i386.all "));
    fakes::commands().lines.clear();
    fakes::commands().answers[0].output = std::string(3000, '7') + "\n";
    add();
    EXPECT_THAT(fakes::commands().lines[1], HasSubstr("/KTVXmgr5r_" + std::string(1022, '7') + "_i386.all "));
}

TEST_F(Templates, OlderVersionIsDroppedFirst) {
    older_version_is_known();
    EXPECT_NE(add(), 0);
    const std::string record_file = "/var/sadm/system/admin/services/Quorvel_2.4";
    ASSERT_EQ(fakes::commands().lines.size(), 7u);
    EXPECT_EQ(fakes::commands().lines[3], "/usr/bin/grep -v \"i386.*KTVXmgr5r.*\" " + record_file +
                                              " > /tmp/.softinfo.edit ;/usr/bin/mv /tmp/.softinfo.edit " +
                                              record_file);
    EXPECT_EQ(fakes::commands().lines[4],
              "/usr/bin/rm -rf /export/root/templates/Quorvel_2.4/KTVXmgr5r*i386*");
    fs::remove("/tmp/.softinfo.edit");
}

TEST_F(Templates, FailedCopyEndsTheAddition) {
    fakes::commands().answers.push_back({.contains = "cp -rp", .status = 256, .output = "no space\n"});
    EXPECT_EQ(add(), 1);
    ASSERT_EQ(errors().size(), 1u);
    EXPECT_EQ(errors()[0].code, 92);
    EXPECT_THAT(fakes::commands().lines.back(), HasSubstr("cp -rp"));
}

TEST_F(Templates, FailedRecordIsNotReported) {
    fakes::commands().answers.push_back({.contains = "echo SPOOLED_ROOT", .status = 256});
    EXPECT_NE(add(), 0);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Templates, ServiceOfRelease24StopsAfterACompletedAddition) {
    // The package directory of the service is fixed:
    // only what comes before the first missing package shows here.
    EXPECT_EQ(setup_cachelet_service("m", "i386", "2.4"), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{96, "96|m|/opt/KTVXmgrd/2.2/Packages/i386/5.4/KTVXmgr5r"}));
}
