// SPDX-License-Identifier: MIT
#include <cerrno>
#include <climits>
#include <csignal>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm.h"
#include "support/eventually.hpp"
#include "support/fake_commands.hpp"
#include "support/fake_platform.hpp"
#include "support/memory_limit.hpp"
#include "support/text_files.hpp"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

namespace {

bool proc_opens = true;
bool forks = true;
std::string commands_of_child; // where a child writes the commands that it gave to system()

template <typename Function> Function *real(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

int open_descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

// A process that does nothing until the test is over.
class Sleeper {
public:
    Sleeper() : id_(real<pid_t()>("fork")()) {
        if (id_ == 0)
            for (;;)
                pause();
    }
    ~Sleeper() {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    Sleeper(const Sleeper &) = delete;
    Sleeper &operator=(const Sleeper &) = delete;
    int id() const { return id_; }

private:
    pid_t id_;
};

} // namespace

extern "C" DIR *opendir(const char *path) {
    if (!proc_opens) {
        errno = ENOENT;
        return nullptr;
    }
    return real<DIR *(const char *)>("opendir")(path);
}

extern "C" pid_t fork() {
    if (!forks) {
        errno = EAGAIN;
        return -1;
    }
    return real<pid_t()>("fork")();
}

extern "C" void _exit(int status) {
    if (!commands_of_child.empty()) {
        std::ofstream file(commands_of_child + ".part");
        for (const std::string &line : fakes::commands().lines)
            file << line << '\n';
        file.close();
        fs::rename(commands_of_child + ".part", commands_of_child);
    }
    real<void(int)>("_exit")(status);
    __builtin_unreachable();
}

// ---- finding daemons ----

class Daemons : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        proc_opens = true;
        forks = true;
        commands_of_child.clear();
    }
    void TearDown() override { Daemons::SetUp(); }
    void process(const Sleeper &sleeper, const char *name, const char *arguments, bool defunct = false) {
        fakes::platform().processes[sleeper.id()] = {defunct ? 1 : 0, name, arguments};
    }
    // The two processes in the order in which a scan meets them.
    static std::pair<const Sleeper &, const Sleeper &> in_order(const Sleeper &a, const Sleeper &b) {
        return a.id() < b.id() ? std::pair<const Sleeper &, const Sleeper &>(a, b)
                               : std::pair<const Sleeper &, const Sleeper &>(b, a);
    }
};

TEST_F(Daemons, LiveDaemonIsFoundWithItsId) {
    const Sleeper daemon;
    process(daemon, "mountd", "/usr/lib/nfs/mountd");
    int id = -7;
    EXPECT_EQ(check_daemon("mountd", &id), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(id, daemon.id());
}

TEST_F(Daemons, IdIsOptional) {
    const Sleeper daemon;
    process(daemon, "mountd", "/usr/lib/nfs/mountd");
    EXPECT_EQ(check_daemon("mountd", nullptr), HOSTADM_DAEMON_RUNNING);
}

TEST_F(Daemons, AbsentDaemonStoresNothing) {
    const Sleeper other;
    process(other, "lockd", "/usr/lib/nfs/lockd");
    int id = -7;
    EXPECT_EQ(check_daemon("mountd", &id), HOSTADM_DAEMON_NOT_RUNNING);
    EXPECT_EQ(id, -7);
}

TEST_F(Daemons, OnlyDefunctDaemonIsToldWithItsId) {
    const Sleeper daemon;
    process(daemon, "mountd", "/mountd", true);
    int id = -7;
    EXPECT_EQ(check_daemon("mountd", &id), HOSTADM_DAEMON_DEFUNCT);
    EXPECT_EQ(id, daemon.id());
}

TEST_F(Daemons, LiveDaemonWinsOverDefunctOneBeforeIt) {
    const Sleeper a, b;
    const auto [first, second] = in_order(a, b);
    process(first, "nfsd", "/nfsd", true);
    process(second, "nfsd", "/usr/lib/nfs/nfsd -a 16");
    int id = -7;
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(id, second.id());
}

TEST_F(Daemons, LastOfSeveralDefunctDaemonsGivesTheId) {
    const Sleeper a, b;
    const auto [first, second] = in_order(a, b);
    process(first, "nfsd", "/nfsd", true);
    process(second, "nfsd", "/nfsd", true);
    int id = -7;
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_DEFUNCT);
    EXPECT_EQ(id, second.id());
}

TEST_F(Daemons, DaemonStartedByBareNameIsNotRecognised) {
    const Sleeper daemon;
    process(daemon, "nfsd", "nfsd -a 16");
    EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_NOT_RUNNING);
}

TEST_F(Daemons, ArgumentsThatMerelyContainTheNameCount) {
    const Sleeper editor;
    process(editor, "vi", "vi /tmp/nfsd");
    EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_daemon("nfs", nullptr), HOSTADM_DAEMON_RUNNING);
}

TEST_F(Daemons, LongNameIsNotCut) {
    const Sleeper daemon;
    process(daemon, "d", "/usr/lib/nfs/nfsd");
    const std::string name = "nfsd" + std::string(5000, 'x');
    EXPECT_EQ(check_daemon(name.c_str(), nullptr), HOSTADM_DAEMON_NOT_RUNNING);
}

[[noreturn]] void look_for_a_daemon_without_memory() {
    const std::string name(100'000'000, 'x');
    tests::limit_memory_to(10'000'000);
    int id = -7;
    const bool told = check_daemon(name.c_str(), &id) == HOSTADM_DAEMON_NO_PROCFS && id == -7 &&
                      start_daemon("/usr/lib/nfs/nfsd", name.c_str()) == -1;
    real<void(int)>("_exit")(told ? 0 : 1);
    __builtin_unreachable();
}

TEST_F(Daemons, MemoryOutIsAFailure) {
    SKIP_WITHOUT_MEMORY_LIMIT();
    EXPECT_EXIT(look_for_a_daemon_without_memory(), testing::ExitedWithCode(0), "");
}

TEST_F(Daemons, NoNameMatchesNoProcess) {
    const Sleeper daemon;
    process(daemon, "nfsd", "/usr/lib/nfs/nfsd");
    EXPECT_EQ(check_daemon(nullptr, nullptr), HOSTADM_DAEMON_NOT_RUNNING);
}

TEST_F(Daemons, MissingProcessTableIsTold) {
    proc_opens = false;
    int id = -7;
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_NO_PROCFS);
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_NO_PROCFS);
    EXPECT_EQ(id, -7);
}

TEST_F(Daemons, ProcessesWithoutRecordAreSkipped) {
    const Sleeper unreadable, daemon;
    process(daemon, "nfsd", "/usr/lib/nfs/nfsd");
    EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_RUNNING);
}

TEST_F(Daemons, EveryEntryOfTheProcessTableIsAsked) {
    fakes::platform().processes[0] = {0, "nfsd",
                                      "/usr/lib/nfs/nfsd"}; // what is called by no number, as /proc/version
    int id = -7;
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(id, 0);
}

TEST_F(Daemons, ChecksLeaveNoDescriptor) {
    const Sleeper live, defunct;
    process(live, "nfsd", "/usr/lib/nfs/nfsd");
    process(defunct, "mountd", "/mountd", true);
    const int before = open_descriptors();
    for (int i = 0; i < 200; ++i) {
        check_daemon("nfsd", nullptr);
        check_daemon("mountd", nullptr);
        check_daemon("rpld", nullptr);
        check_rarpd("le0");
    }
    EXPECT_EQ(open_descriptors(), before);
}

// ---- the reverse-address daemon ----

TEST_F(Daemons, RarpdForAllInterfacesServesAny) {
    const Sleeper daemon;
    process(daemon, "in.rarpd", "/usr/sbin/in.rarpd -a");
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_rarpd("hme1"), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_rarpd(nullptr), HOSTADM_DAEMON_RUNNING);
}

TEST_F(Daemons, RarpdForOneInterfaceServesOnlyThat) {
    const Sleeper daemon;
    process(daemon, "in.rarpd", "in.rarpd le0 server1");
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_rarpd("le1"), HOSTADM_DAEMON_NOT_RUNNING);
    EXPECT_EQ(check_rarpd(nullptr), HOSTADM_DAEMON_NOT_RUNNING);
}

TEST_F(Daemons, RarpdMustBearItsNameExactly) {
    const Sleeper a, b;
    process(a, "in.rarpd2", "/usr/sbin/in.rarpd2 -a");
    process(b, "vi", "vi /usr/sbin/in.rarpd -a");
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_NOT_RUNNING);
}

TEST_F(Daemons, OnlyDefunctRarpdIsTold) {
    const Sleeper daemon;
    process(daemon, "in.rarpd", "in.rarpd -a", true);
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_DEFUNCT);
}

TEST_F(Daemons, LiveRarpdWinsOverDefunctOne) {
    const Sleeper a, b;
    const auto [first, second] = in_order(a, b);
    process(first, "in.rarpd", "in.rarpd -a", true);
    process(second, "in.rarpd", "in.rarpd -a");
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_RUNNING);
}

// ---- starting daemons ----

// A program that writes down how it was started.
class StartDaemon : public Daemons {
protected:
    void SetUp() override {
        Daemons::SetUp();
        fakes::commands().real = true;
        char name[] = "/tmp/daemons_test.XXXXXX";
        directory = mkdtemp(name);
    }
    void TearDown() override {
        while (waitpid(-1, nullptr, 0) > 0) {
        }
        fs::remove_all(directory);
        Daemons::TearDown();
    }
    std::string program(const std::string &name) {
        const std::string path = directory + "/" + name;
        std::ofstream(path) << "#!/bin/sh\n"
                               "exec 9>"
                            << directory
                            << "/writing\n"
                               "echo \"$0 $# $*\" >&9\n"
                               "( ls -l /proc/$$/fd >&9 )\n"
                               "cut -d' ' -f1,6 /proc/$$/stat >&9\n"
                               "mv "
                            << directory << "/writing " << directory << "/record\n";
        fs::permissions(path, fs::perms::owner_all);
        return path;
    }
    std::string record() {
        const std::string path = directory + "/record";
        EXPECT_TRUE(tests::eventually([&] { return fs::exists(path); })) << path;
        return tests::content(path);
    }
    std::string first_line() {
        const std::string text = record();
        return text.substr(0, text.find('\n'));
    }
    static int status_of_child() {
        int status = -1;
        wait(&status);
        return status;
    }
    std::string directory;
};

TEST_F(StartDaemon, WithoutArgumentsRunsTheProgramAlone) {
    const std::string path = program("mountd");
    EXPECT_EQ(start_daemon(path.c_str(), nullptr), 0);
    EXPECT_EQ(first_line(), path + " 0 ");
    EXPECT_TRUE(fakes::commands().lines.empty());
}

TEST_F(StartDaemon, ArgumentsGoThroughTheShellIntoTheBackground) {
    const std::string path = program("nfsd");
    EXPECT_EQ(start_daemon(path.c_str(), "-a 16"), 0);
    EXPECT_EQ(first_line(), path + " 2 -a 16");
    const int status = status_of_child();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(StartDaemon, ShellLineIsExact) {
    fakes::commands().real = false;
    commands_of_child = directory + "/record";
    EXPECT_EQ(start_daemon("/usr/lib/nfs/nfsd", "-a 16"), 0);
    EXPECT_EQ(record(), "/usr/lib/nfs/nfsd -a 16 &\n");
}

TEST_F(StartDaemon, RarpdServesAllInterfacesWhateverIsAsked) {
    const std::string path = program("in.rarpd");
    EXPECT_EQ(start_daemon(path.c_str(), "le0"), 0);
    EXPECT_EQ(first_line(), path + " 1 -a");
}

TEST_F(StartDaemon, RpldServesAllInterfacesWhateverIsAsked) {
    const std::string path = program("rpld");
    EXPECT_EQ(start_daemon(path.c_str(), "x"), 0);
    EXPECT_EQ(first_line(), path + " 1 -a");
}

TEST_F(StartDaemon, NameInAFolderOfThePathCountsToo) {
    fs::create_directory(directory + "/rpld");
    const std::string path = program("rpld/nfsd");
    EXPECT_EQ(start_daemon(path.c_str(), "-a 16"), 0);
    EXPECT_EQ(first_line(), path + " 1 -a");
}

TEST_F(StartDaemon, MissingProgramIsNotNoticed) {
    EXPECT_EQ(start_daemon((directory + "/nothing").c_str(), nullptr), 0);
    const int status = status_of_child();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

TEST_F(StartDaemon, MissingProgramWithArgumentsEndsTheChildQuietly) {
    EXPECT_EQ(start_daemon((directory + "/nothing").c_str(), "-a"), 0);
    const int status = status_of_child();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(StartDaemon, NoChildIsAFailure) {
    forks = false;
    EXPECT_EQ(start_daemon("/usr/lib/nfs/nfsd", "-a 16"), -1);
    EXPECT_EQ(start_daemon("/usr/sbin/rpld", nullptr), -1);
    EXPECT_TRUE(fakes::commands().lines.empty());
}

TEST_F(StartDaemon, NoPathIsAFailure) {
    EXPECT_EQ(start_daemon(nullptr, "-a"), -1);
    errno = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(StartDaemon, LongArgumentsAreNotCut) {
    const std::string path = program("nfsd");
    const std::string argument(5000, 'x');
    EXPECT_EQ(start_daemon(path.c_str(), argument.c_str()), 0);
    EXPECT_EQ(first_line(), path + " 1 " + argument);
}

// A reader of the method's output must not wait for the daemon,
// and the daemon keeps nothing of the method open.
class StartDaemonDetached : public StartDaemon, public testing::WithParamInterface<const char *> {};

TEST_P(StartDaemonDetached, HoldsNothingOfTheCaller) {
    const std::string path = program("nfsd");
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const int high = fcntl(pipe_ends[1], F_DUPFD, 200);
    EXPECT_EQ(start_daemon(path.c_str(), GetParam()), 0);
    const std::string text = record();
    EXPECT_THAT(text, Not(HasSubstr("pipe:")));
    for (const char *standard : {"0", "1", "2"})
        EXPECT_THAT(text, HasSubstr(std::string(" ") + standard + " -> /dev/null"));
    EXPECT_EQ(fcntl(pipe_ends[1], F_GETFD), 0) << "the caller's own descriptors stay as they were";
    for (const int end : {pipe_ends[0], pipe_ends[1], high})
        close(end);
}

TEST_P(StartDaemonDetached, LivesInASessionOfItsOwn) {
    EXPECT_EQ(start_daemon(program("nfsd").c_str(), GetParam()), 0);
    const std::string text = record();
    std::istringstream last_line(text.substr(text.rfind('\n', text.size() - 2) + 1));
    int id = 0, session = 0;
    last_line >> id >> session;
    EXPECT_GT(session, 0);
    EXPECT_NE(session, getsid(0));
}

INSTANTIATE_TEST_SUITE_P(BothWays, StartDaemonDetached, testing::Values(nullptr, "-a 16"),
                         [](const auto &way) {
                             return way.param == nullptr ? "Directly" : "ThroughTheShell";
                         });
