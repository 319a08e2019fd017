// SPDX-License-Identifier: MIT
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm/platform.h"
#include "platform/name_service.hpp"
#include "platform/process.hpp"
#include "support/inside.hpp"
#include "support/scratch.hpp"

namespace fs = std::filesystem;
using hostadm::platform::joined_arguments;
using hostadm::platform::read_process;
using hostadm::platform::sources_in_line;
using hostadm::platform::sources_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using tests::inside;

namespace {

// A directory with files that play parts of /proc or /etc.
class Samples : public testing::Test {
protected:
    std::string write(const std::string &name, const std::string &text) const {
        return scratch_.write(name, text);
    }
    // The record of a process that is written down in the directory.
    bool read(const std::string &stat, const std::string &command_line) {
        write("stat", stat);
        write("cmdline", command_line);
        const int fd = open(directory_.c_str(), O_RDONLY | O_DIRECTORY);
        const bool good = read_process(fd, info_);
        close(fd);
        return good;
    }
    tests::Scratch scratch_;
    const fs::path directory_ = scratch_.path();
    struct sysv_psinfo info_ {};
};
using Process = Samples;
using Switch = Samples;

int psinfo_of(pid_t process, struct sysv_psinfo &info) {
    const int fd = open(("/proc/" + std::to_string(process)).c_str(), O_RDONLY);
    const int status = sysv_psinfo(fd, &info);
    const int error = errno;
    close(fd);
    errno = error;
    return status;
}

} // namespace

// ---- identity ----

TEST(Sysinfo, TellsReleaseAndArchitectureOfTheBuild) {
    char text[257];
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_RELEASE, text, sizeof text), static_cast<long>(sizeof HOSTADM_RELEASE));
    EXPECT_STREQ(text, HOSTADM_RELEASE);
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_ARCHITECTURE, text, sizeof text),
              static_cast<long>(sizeof HOSTADM_ARCHITECTURE));
    EXPECT_STREQ(text, HOSTADM_ARCHITECTURE);
}

TEST(Sysinfo, TellsTheHostName) {
    inside(
        [] {
            char text[257];
            EXPECT_EQ(sysv_sysinfo(SYSV_SI_HOSTNAME, text, sizeof text), 8);
            EXPECT_STREQ(text, "server1");
        },
        {.host_name = "server1"});
}

TEST(Sysinfo, TellsTheDomainAndFailsWithoutOne) {
    inside([] {
        char text[257] = "untouched";
        for (const char *none : {"", "(none)"}) {
            ASSERT_EQ(setdomainname(none, std::strlen(none)), 0);
            errno = 0;
            EXPECT_LT(sysv_sysinfo(SYSV_SI_SRPC_DOMAIN, text, sizeof text), 1);
            EXPECT_EQ(errno, ENOENT);
            EXPECT_STREQ(text, "untouched");
        }
        ASSERT_EQ(setdomainname("lab.example", 11), 0);
        EXPECT_EQ(sysv_sysinfo(SYSV_SI_SRPC_DOMAIN, text, sizeof text), 12);
        EXPECT_STREQ(text, "lab.example");
    });
}

TEST(Sysinfo, CutsAndTerminatesInASmallBuffer) {
    char text[4] = {'x', 'x', 'x', 'x'};
    const long needed = sizeof HOSTADM_ARCHITECTURE;
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_ARCHITECTURE, text, 3), needed);
    EXPECT_EQ(std::string(text), std::string(HOSTADM_ARCHITECTURE).substr(0, 2));
    EXPECT_EQ(text[3], 'x');
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_ARCHITECTURE, text, 1), needed);
    EXPECT_EQ(text[0], '\0');
}

TEST(Sysinfo, TellsTheLengthWithoutABuffer) {
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_RELEASE, nullptr, 0), static_cast<long>(sizeof HOSTADM_RELEASE));
    char text[] = "kept";
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_RELEASE, text, 0), static_cast<long>(sizeof HOSTADM_RELEASE));
    EXPECT_STREQ(text, "kept");
}

TEST(Sysinfo, RefusesWhatMakesNoSense) {
    char text[16];
    for (const int command : {0, 1, 4, 10, -1, std::numeric_limits<int>::max()}) {
        errno = 0;
        EXPECT_EQ(sysv_sysinfo(command, text, sizeof text), -1) << command;
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_RELEASE, text, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sysv_sysinfo(SYSV_SI_RELEASE, nullptr, 16), -1);
    EXPECT_EQ(errno, EFAULT);
}

// ---- processes, by samples ----

TEST(Arguments, AreJoinedBySingleBlanks) {
    using namespace std::string_literals;
    EXPECT_EQ(joined_arguments("a\0b c\0d\0"s), "a b c d");
    EXPECT_EQ(joined_arguments("a\0\0b\0"s), "a  b");
    EXPECT_EQ(joined_arguments("title set by the program\0\0\0\0"s), "title set by the program");
    EXPECT_EQ(joined_arguments(""), "");
}

TEST_F(Process, IsReadFromItsDirectory) {
    using namespace std::string_literals;
    ASSERT_TRUE(read("7 (nfsd) S 1 7 7 0 -1", "/usr/lib/nfs/nfsd\0-a\0"
                                              "16\0"s));
    EXPECT_EQ(info_.pr_zomb, 0);
    EXPECT_EQ(info_.pr_pid, 7);
    EXPECT_STREQ(info_.pr_fname, "nfsd");
    EXPECT_STREQ(info_.pr_psargs, "/usr/lib/nfs/nfsd -a 16");
}

TEST_F(Process, ThatIsDefunctStandsAsSlashAndItsName) {
    ASSERT_TRUE(read("7 (mountd) Z 1 7 7 0 -1", ""));
    EXPECT_NE(info_.pr_zomb, 0);
    EXPECT_STREQ(info_.pr_psargs, "/mountd");
}

TEST_F(Process, ThatEndsBetweenTheReadsIsDefunct) {
    using namespace std::string_literals;
    ASSERT_TRUE(read("7 (mountd) Z 1 7 7 0 -1", "/usr/lib/nfs/mountd\0"s));
    EXPECT_STREQ(info_.pr_psargs, "/mountd");
}

TEST_F(Process, ThatIsBeingRemovedIsDefunct) {
    ASSERT_TRUE(read("7 (mountd) X 1 7 7 0 -1", ""));
    EXPECT_NE(info_.pr_zomb, 0);
    EXPECT_STREQ(info_.pr_psargs, "/mountd");
}

TEST_F(Process, ThatIsOnlyDrawnOnADiskIsNone) {
    write("stat", "7 (mountd) S 1 7 7 0 -1");
    write("cmdline", "/usr/lib/nfs/mountd");
    const int fd = open(directory_.c_str(), O_RDONLY | O_DIRECTORY);
    EXPECT_EQ(sysv_psinfo(fd, &info_), -1);
    EXPECT_EQ(errno, EINVAL);
    close(fd);
}

TEST_F(Process, OfTheKernelHasNoArguments) {
    ASSERT_TRUE(read("7 (kworker/0:1-events_power_efficient) I 2 0", ""));
    EXPECT_STREQ(info_.pr_fname, "kworker/0:1-eve");
    EXPECT_STREQ(info_.pr_psargs, "");
}

TEST_F(Process, FillsBothFieldsToTheirLimits) {
    ASSERT_TRUE(read("7 (123456789012345) S 1", std::string(79, 'x') + std::string(5000, 'y')));
    EXPECT_STREQ(info_.pr_fname, "123456789012345");
    EXPECT_EQ(std::string(info_.pr_psargs), std::string(79, 'x'));
}

TEST_F(Process, ThatLosesAFileIsNone) {
    write("cmdline", "x");
    const int fd = open(directory_.c_str(), O_RDONLY | O_DIRECTORY);
    EXPECT_FALSE(read_process(fd, info_));
    EXPECT_EQ(errno, ENOENT);
    close(fd);
}

// ---- processes, real ones ----

TEST(Psinfo, TellsOfThisProcess) {
    struct sysv_psinfo info {};
    ASSERT_EQ(psinfo_of(getpid(), info), 0);
    EXPECT_EQ(info.pr_pid, getpid());
    EXPECT_EQ(info.pr_zomb, 0);
    EXPECT_NE(std::string(info.pr_psargs).find("platform"), std::string::npos);
}

TEST(Psinfo, TellsOfADefunctProcess) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_NAME, "my daemon)");
        _exit(0);
    }
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    struct sysv_psinfo info {};
    EXPECT_EQ(psinfo_of(child, info), 0);
    EXPECT_NE(info.pr_zomb, 0);
    EXPECT_EQ(info.pr_pid, child);
    EXPECT_STREQ(info.pr_fname, "my daemon)");
    EXPECT_STREQ(info.pr_psargs, "/my daemon)");
    waitpid(child, nullptr, 0);
}

TEST(Psinfo, FailsForAProcessThatHasGoneAndKeepsTheRecord) {
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    const int fd = open(("/proc/" + std::to_string(child)).c_str(), O_RDONLY);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    struct sysv_psinfo info {};
    info.pr_pid = 12345;
    EXPECT_EQ(sysv_psinfo(fd, &info), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(info.pr_pid, 12345);
    close(fd);
}

TEST(Psinfo, RefusesEverythingElse) {
    struct sysv_psinfo info {};
    for (const char *path : {"/proc", "/proc/version", "/proc/sys", "/etc", "/dev/null"}) {
        const int fd = open(path, O_RDONLY);
        ASSERT_GE(fd, 0) << path;
        EXPECT_EQ(sysv_psinfo(fd, &info), -1) << path;
        EXPECT_EQ(errno, EINVAL) << path;
        close(fd);
    }
    EXPECT_EQ(sysv_psinfo(-1, &info), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(sysv_psinfo(0, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Psinfo, OpensNothingThatStaysOpen) {
    const auto open_files = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = open_files();
    struct sysv_psinfo info {};
    for (int i = 0; i < 1000; ++i)
        psinfo_of(getpid(), info);
    EXPECT_EQ(open_files(), before);
}

// ---- file systems ----

TEST(Fstype, NamesTheTypeThatIsMounted) {
    inside([] {
        ASSERT_TRUE(fs::create_directories("/some/disk"));
        ASSERT_EQ(mount("disk", "/some/disk", "tmpfs", 0, ""), 0);
        fs::create_symlink("/some/disk", "/some/link");
        std::ofstream("/some/disk/file") << "x";
        char name[16];
        for (const char *path : {"/some/disk", "/some/link", "/some/disk/file"}) {
            EXPECT_EQ(sysv_fstype(path, name, sizeof name), 0) << path;
            EXPECT_STREQ(name, "tmpfs") << path;
        }
        EXPECT_EQ(sysv_fstype("/proc", name, sizeof name), 0);
        EXPECT_STREQ(name, "proc");
    });
}

TEST(Fstype, SeesThroughAThrowawayRoot) {
    char live[64] = "";
    ASSERT_EQ(sysv_fstype("/", live, sizeof live), 0);
    inside([&] {
        char shown[64] = "";
        EXPECT_EQ(sysv_fstype("/", shown, sizeof shown), 0);
        EXPECT_STREQ(shown, live);
    });
}

TEST(Fstype, NeverCutsAName) {
    char name[8] = "kept";
    EXPECT_EQ(sysv_fstype("/proc", name, 4), -1);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(sysv_fstype("/proc", name, 0), -1);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(sysv_fstype("/proc", name, 5), 0);
    EXPECT_STREQ(name, "proc");
}

TEST(Fstype, SaysWhatIsWrongWithThePath) {
    char name[16];
    EXPECT_EQ(sysv_fstype("/no/such/path", name, sizeof name), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(sysv_fstype("", name, sizeof name), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(sysv_fstype("/etc/passwd/x", name, sizeof name), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(sysv_fstype(nullptr, name, sizeof name), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sysv_fstype("/", nullptr, 16), -1);
    EXPECT_EQ(errno, EINVAL);
}

// ---- name-service switch ----

TEST(SwitchLine, NamesItsSourcesInOrder) {
    EXPECT_THAT(sources_in_line("bootparams: files nis", "bootparams"),
                Optional(ElementsAre("files", "nis")));
    EXPECT_THAT(sources_in_line(" \tbootparams :\tnis\tfiles  \n", "bootparams"),
                Optional(ElementsAre("nis", "files")));
    EXPECT_THAT(sources_in_line("bootparams:files", "bootparams"), Optional(ElementsAre("files")));
    EXPECT_THAT(sources_in_line("bootparams:", "bootparams"), Optional(IsEmpty()));
}

TEST(SwitchLine, SkipsStatusesActionsAndComments) {
    EXPECT_THAT(sources_in_line("b: nis [NOTFOUND=return] files", "b"),
                Optional(ElementsAre("nis", "files")));
    EXPECT_THAT(sources_in_line("b: nis[ NOTFOUND=return UNAVAIL=continue ]files", "b"),
                Optional(ElementsAre("nis", "files")));
    EXPECT_THAT(sources_in_line("b: nis [!SUCCESS=return", "b"), Optional(ElementsAre("nis")));
    EXPECT_THAT(sources_in_line("b: files # nis", "b"), Optional(ElementsAre("files")));
}

TEST(SwitchLine, IsForItsOwnDatabaseOnly) {
    EXPECT_EQ(sources_in_line("bootparamsx: files", "bootparams"), std::nullopt);
    EXPECT_EQ(sources_in_line("Bootparams: files", "bootparams"), std::nullopt);
    EXPECT_EQ(sources_in_line("# bootparams: files", "bootparams"), std::nullopt);
    EXPECT_EQ(sources_in_line("bootparams files", "bootparams"), std::nullopt);
    EXPECT_EQ(sources_in_line("", "bootparams"), std::nullopt);
}

TEST_F(Switch, TakesTheFirstLineOfADatabase) {
    const std::string path = write("nsswitch.conf", "hosts: dns\nb: nis files\nb: files\n");
    EXPECT_THAT(sources_of(path, "b"), Optional(ElementsAre("nis", "files")));
}

TEST_F(Switch, WithoutALineMeansFiles) {
    EXPECT_THAT(sources_of(write("nsswitch.conf", "hosts: dns\n"), "b"), Optional(ElementsAre("files")));
    EXPECT_THAT(sources_of(write("empty", ""), "b"), Optional(ElementsAre("files")));
}

TEST_F(Switch, ReadsALastLineWithoutNewlineAndAnEnormousOne) {
    EXPECT_THAT(sources_of(write("last", "b: nis"), "b"), Optional(ElementsAre("nis")));
    EXPECT_THAT(sources_of(write("long", "#" + std::string(1'000'000, 'x') + "\nb: nis\n"), "b"),
                Optional(ElementsAre("nis")));
}

TEST_F(Switch, ThatCannotBeReadIsNone) {
    EXPECT_EQ(sources_of(directory_ / "missing", "b"), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(sources_of(directory_, "b"), std::nullopt);
}

TEST(NswGetconfig, GivesTheListAsC) {
    inside([] {
        std::ofstream("/etc/nsswitch.conf") << "bootparams: files [NOTFOUND=continue] nis nisplus\nempty:\n";
        const sysv_nsw_config *config = sysv_nsw_getconfig("bootparams");
        ASSERT_NE(config, nullptr);
        std::vector<std::string> services;
        for (const sysv_nsw_lookup *lookup = config->lookups; lookup != nullptr; lookup = lookup->next)
            services.push_back(lookup->service);
        EXPECT_THAT(services, ElementsAre("files", "nis", "nisplus"));
        ASSERT_NE(sysv_nsw_getconfig("empty"), nullptr);
        EXPECT_EQ(sysv_nsw_getconfig("empty")->lookups, nullptr);
        ASSERT_NE(sysv_nsw_getconfig("others"), nullptr);
        EXPECT_STREQ(sysv_nsw_getconfig("others")->lookups->service, "files");
        fs::remove("/etc/nsswitch.conf");
        EXPECT_EQ(sysv_nsw_getconfig("bootparams"), nullptr);
        EXPECT_EQ(errno, ENOENT);
    });
}

TEST(NswGetconfig, RefusesNoDatabase) {
    EXPECT_EQ(sysv_nsw_getconfig(nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sysv_nsw_getconfig(""), nullptr);
}

// ---- letter case ----

TEST(LetterCase, TurnsAsciiLettersOnly) {
    char lower[] = "Kel4M-[\\]^_`{|}\xc4\xe4";
    char upper[] = "Kel4m-@[`{\xc4\xe4";
    EXPECT_EQ(sysv_strlwr(lower), lower);
    EXPECT_STREQ(lower, "kel4m-[\\]^_`{|}\xc4\xe4");
    EXPECT_EQ(sysv_strupr(upper), upper);
    EXPECT_STREQ(upper, "KEL4M-@[`{\xc4\xe4");
}

TEST(LetterCase, TakesNullAndEmpty) {
    char empty[] = "";
    EXPECT_EQ(sysv_strlwr(nullptr), nullptr);
    EXPECT_EQ(sysv_strupr(nullptr), nullptr);
    EXPECT_STREQ(sysv_strlwr(empty), "");
    EXPECT_STREQ(sysv_strupr(empty), "");
}
