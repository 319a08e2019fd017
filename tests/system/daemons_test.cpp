// SPDX-License-Identifier: MIT
// The daemon checks and starts with real processes.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "hostadm.h"
#include "support/eventually.hpp"
#include "support/hostadm_command.hpp"
#include "support/standin.hpp"

namespace fs = std::filesystem;
using hostadm_command::hostadm;
using testing::HasSubstr;

namespace {

// A program that runs until the object goes; what it is called is up to the test.
class Running {
public:
    Running(const std::string &path, std::vector<std::string> arguments) : id_(fork()) {
        if (id_ == 0) {
            std::vector<char *> words;
            for (std::string &word : arguments)
                words.push_back(word.data());
            words.push_back(nullptr);
            execv(path.c_str(), words.data());
            _exit(127);
        }
        wait_for_exec(arguments);
    }
    ~Running() {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    int id() const { return id_; }
    // Ends it and leaves it to be reaped.
    void become_defunct() const {
        kill(id_, SIGKILL);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOWAIT);
    }

private:
    // Until the new arguments show: for a moment the new program has none.
    void wait_for_exec(const std::vector<std::string> &arguments) const {
        std::string command_line;
        for (const std::string &word : arguments)
            command_line += word + '\0';
        const std::string file = "/proc/" + std::to_string(id_) + "/cmdline";
        tests::eventually([&] { return tests::content(file) == command_line; });
    }
    pid_t id_;
};

void install(const std::string &path) {
    standin::place(path, {.stay = true});
}

// The state that the command tells of.
std::string told(const std::string &arguments) {
    const auto result = hostadm("run host/check_daemon " + arguments);
    EXPECT_EQ(result.status, 0) << result.error;
    return result.output;
}

} // namespace

class RealDaemons : public testing::Test {
protected:
    void SetUp() override {
        standin::reset();
        for (const char *path :
             {"/usr/lib/nfs/nfsd", "/usr/lib/nfs/mountd", "/usr/sbin/in.rarpd", "/usr/sbin/rpld"})
            install(path);
    }
    void TearDown() override {
        for (const standin::Call &call : standin::calls())
            kill(call.pid, SIGKILL);
        while (waitpid(-1, nullptr, 0) > 0) {
        }
    }
    static standin::Call only_call(const std::string &path) {
        standin::wait_for_calls(path, 1);
        const auto calls = standin::calls(path);
        EXPECT_EQ(calls.size(), 1u);
        return calls.empty() ? standin::Call{} : calls.front();
    }
};

TEST_F(RealDaemons, LiveDaemon) {
    const Running daemon("/usr/lib/nfs/mountd", {"/usr/lib/nfs/mountd"});
    int id = 0;
    EXPECT_EQ(check_daemon("mountd", &id), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(id, daemon.id());
    EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_NOT_RUNNING);
    const std::string text = told("name=mountd");
    EXPECT_THAT(text, HasSubstr("running"));
    EXPECT_THAT(text, HasSubstr(std::to_string(daemon.id())));
    EXPECT_THAT(told("name=nfsd"), HasSubstr("not running"));
}

TEST_F(RealDaemons, DefunctDaemon) {
    const Running daemon("/usr/lib/nfs/nfsd", {"/usr/lib/nfs/nfsd", "-a", "16"});
    EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_RUNNING);
    daemon.become_defunct();
    int id = 0;
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_DEFUNCT);
    EXPECT_EQ(id, daemon.id());
    EXPECT_THAT(told("name=nfsd"), HasSubstr("defunct"));
    const Running second("/usr/lib/nfs/nfsd", {"/usr/lib/nfs/nfsd", "-a", "16"});
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(id, second.id());
}

TEST_F(RealDaemons, DaemonStartedByBareName) {
    const Running daemon("/usr/lib/nfs/nfsd", {"nfsd", "-a", "16"});
    EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_NOT_RUNNING);
}

TEST_F(RealDaemons, EditorOpenOnAFileOfThatName) {
    std::ofstream("/tmp/nfsd") << "notes\n";
    const Running editor("/usr/bin/tail", {"vi", "-f", "/tmp/nfsd"});
    int id = 0;
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(id, editor.id());
}

TEST_F(RealDaemons, NameBehindTheRecordsEndIsNotSeen) {
    const Running daemon("/usr/sbin/rpld", {"/usr/sbin/rpld", std::string(80, 'x'), "/usr/lib/nfs/nfsd"});
    EXPECT_EQ(check_daemon("rpld", nullptr), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_NOT_RUNNING);
}

TEST_F(RealDaemons, RarpdForAllInterfaces) {
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_NOT_RUNNING);
    EXPECT_THAT(told("interface=le0"), HasSubstr("not running"));
    const Running daemon("/usr/sbin/in.rarpd", {"/usr/sbin/in.rarpd", "-a"});
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_rarpd("le1"), HOSTADM_DAEMON_RUNNING);
    daemon.become_defunct();
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_NOT_RUNNING)
        << "a defunct process has no arguments that would tell its interfaces";
}

TEST_F(RealDaemons, RarpdForOneInterface) {
    const Running daemon("/usr/sbin/in.rarpd", {"in.rarpd", "le0"});
    EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_rarpd("le1"), HOSTADM_DAEMON_NOT_RUNNING);
    const std::string text = told("interface=le0");
    EXPECT_THAT(text, HasSubstr("running"));
    EXPECT_THAT(text, testing::Not(HasSubstr("not running")));
}

TEST_F(RealDaemons, ProcessesThatComeAndGoAreNoTrouble) {
    const Running daemon("/usr/lib/nfs/nfsd", {"/usr/lib/nfs/nfsd"});
    const Running other("/usr/lib/nfs/mountd", {"/usr/lib/nfs/mountd"});
    other.become_defunct();
    const pid_t churn = fork();
    if (churn == 0)
        for (;;) {
            const pid_t child = fork();
            if (child == 0)
                _exit(0);
            waitpid(child, nullptr, 0);
        }
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(check_daemon("nfsd", nullptr), HOSTADM_DAEMON_RUNNING);
        EXPECT_EQ(check_daemon("mountd", nullptr), HOSTADM_DAEMON_DEFUNCT);
        EXPECT_EQ(check_daemon("rpld", nullptr), HOSTADM_DAEMON_NOT_RUNNING);
        EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_NOT_RUNNING);
    }
    kill(churn, SIGKILL);
    waitpid(churn, nullptr, 0);
}

TEST_F(RealDaemons, NothingIsLeftBehindByTenThousandChecks) {
    const Running live("/usr/lib/nfs/nfsd", {"/usr/lib/nfs/nfsd"});
    const Running defunct("/usr/lib/nfs/mountd", {"/usr/lib/nfs/mountd"});
    defunct.become_defunct();
    const auto check_everything = [](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            int id = 0;
            EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_RUNNING);
            EXPECT_EQ(check_daemon("mountd", &id), HOSTADM_DAEMON_DEFUNCT);
            EXPECT_EQ(check_daemon("rpld", &id), HOSTADM_DAEMON_NOT_RUNNING);
            EXPECT_EQ(check_rarpd("le0"), HOSTADM_DAEMON_NOT_RUNNING);
        }
    };
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    check_everything(10);
    const auto open_before = descriptors();
    const auto memory_before = mallinfo2().uordblks;
    check_everything(2500);
    EXPECT_EQ(descriptors(), open_before);
    EXPECT_LT(mallinfo2().uordblks, memory_before + 16384);
}

TEST_F(RealDaemons, StartedDaemonIsFound) {
    EXPECT_EQ(start_daemon("/usr/lib/nfs/nfsd", "-a 16"), 0);
    const standin::Call call = only_call("/usr/lib/nfs/nfsd");
    EXPECT_EQ(call.arguments, (std::vector<std::string>{"/usr/lib/nfs/nfsd", "-a", "16"}));
    ASSERT_GT(wait(nullptr), 0) << "the shell that started it, whose command line names it too";
    int id = 0;
    EXPECT_EQ(check_daemon("nfsd", &id), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(id, call.pid);
}

TEST_F(RealDaemons, BootDaemonsServeAllInterfaces) {
    EXPECT_EQ(start_daemon("/usr/sbin/in.rarpd", "le0"), 0);
    EXPECT_EQ(start_daemon("/usr/sbin/rpld", "x"), 0);
    EXPECT_EQ(only_call("/usr/sbin/in.rarpd").arguments,
              (std::vector<std::string>{"/usr/sbin/in.rarpd", "-a"}));
    EXPECT_EQ(only_call("/usr/sbin/rpld").arguments, (std::vector<std::string>{"/usr/sbin/rpld", "-a"}));
    EXPECT_EQ(check_rarpd("le7"), HOSTADM_DAEMON_RUNNING);
    EXPECT_EQ(check_daemon("rpld", nullptr), HOSTADM_DAEMON_RUNNING);
}

// ---- as a user sees it ----

TEST_F(RealDaemons, UserStartsADaemonOnce) {
    const auto first = hostadm("run host/start_daemon path=/usr/lib/nfs/nfsd args='-a 16'");
    EXPECT_EQ(first.status, 0) << first.error;
    const standin::Call call = only_call("/usr/lib/nfs/nfsd");
    EXPECT_EQ(call.arguments, (std::vector<std::string>{"/usr/lib/nfs/nfsd", "-a", "16"}));
    EXPECT_EQ(call.descriptors,
              (std::map<int, std::string>{{0, "/dev/null"}, {1, "/dev/null"}, {2, "/dev/null"}}))
        << "the method's descriptors are not the daemon's";
    EXPECT_THAT(first.output, HasSubstr("started"));
    EXPECT_THAT(first.output, HasSubstr(std::to_string(call.pid)));

    const auto second = hostadm("run host/start_daemon path=/usr/lib/nfs/nfsd args='-a 16'");
    EXPECT_EQ(second.status, 0) << second.error;
    EXPECT_THAT(second.output, HasSubstr("running already"));
    EXPECT_THAT(first.output, HasSubstr("changed  yes"));
    EXPECT_THAT(second.output, HasSubstr("changed  no"));
    EXPECT_THAT(second.output, HasSubstr(std::to_string(call.pid)));
    EXPECT_EQ(standin::calls("/usr/lib/nfs/nfsd").size(), 1u);
}

TEST_F(RealDaemons, UserIsNotKeptWaitingByTheDaemon) {
    // The daemon would hold the pipe open; reading it to its end must end.
    const auto result = hostadm("run host/start_daemon path=/usr/sbin/rpld 2>&1 | cat");
    EXPECT_EQ(result.status, 0);
    only_call("/usr/sbin/rpld");
}

TEST_F(RealDaemons, UserStartsADaemonWhoseLastRunIsDefunct) {
    const Running gone("/usr/lib/nfs/mountd", {"/usr/lib/nfs/mountd"});
    gone.become_defunct();
    const std::size_t before = standin::calls().size();
    const auto result = hostadm("run host/start_daemon path=/usr/lib/nfs/mountd");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("started"));
    standin::wait_for_calls("/usr/lib/nfs/mountd", before + 1);
    EXPECT_EQ(standin::calls().size(), before + 1);
}

TEST_F(RealDaemons, UserIsToldThatADaemonEndsAtOnce) {
    // One that never comes to be, and one that is there for a moment.
    for (const char *script : {"#!/no/such/interpreter\n", "#!/bin/sh\nsleep 0.02\n"}) {
        std::ofstream("/usr/sbin/in.other") << script;
        std::filesystem::permissions("/usr/sbin/in.other", std::filesystem::perms(0755));
        const auto result = hostadm("run host/start_daemon path=/usr/sbin/in.other");
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_THAT(result.output, HasSubstr("not seen running")) << script;
        EXPECT_THAT(result.output, HasSubstr("changed  no")) << script;
    }
}

TEST_F(RealDaemons, EditorOpenOnTheProgramIsInNobodysWay) {
    install("/usr/bin/vi");
    const Running editor("/usr/bin/vi", {"vi", "/usr/lib/nfs/nfsd"});
    const auto result = hostadm("run host/start_daemon path=/usr/lib/nfs/nfsd");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("started"));
    only_call("/usr/lib/nfs/nfsd");
}

TEST_F(RealDaemons, ProgramThatBeginsWithTheSameLettersIsAnother) {
    const std::string program = "/usr/sbin/boot-parameter-daemon", other = "/usr/sbin/boot-parameter-monitor";
    install(program);
    install(other);
    const Running running(other, {other});
    EXPECT_THAT(hostadm("run host/start_daemon path=" + program).output, HasSubstr("started"));
    const standin::Call call = only_call(program);
    EXPECT_THAT(hostadm("run host/start_daemon path=" + program).output, HasSubstr(std::to_string(call.pid)))
        << "and is found by its long name";
}

TEST_F(RealDaemons, ScriptIsFoundBehindItsInterpreter) {
    std::ofstream("/usr/sbin/rpld") << "#!/bin/sh\nsleep 1000; :\n";
    const Running script("/bin/sh", {"sh", "-e", "/usr/sbin/rpld"});
    EXPECT_THAT(hostadm("run host/start_daemon path=/usr/sbin/rpld").output,
                HasSubstr(std::to_string(script.id())));
}

TEST_F(RealDaemons, UserIsToldOfAMissingProgram) {
    for (const std::string path : {"/usr/lib/nfs/nothing", "/usr/lib/nfs"}) {
        const auto result = hostadm("run host/start_daemon path=" + path);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.error, HasSubstr("there is no program " + path));
    }
}

TEST_F(RealDaemons, AreStartedOnceForWhatIsShared) {
    standin::place("/usr/sbin/share");
    std::filesystem::create_directories("/export/shared");
    for (int i = 0; i < 2; ++i) {
        const auto shared = hostadm("run filesystem/share pathname=/export/shared takeeffect=nowonly");
        EXPECT_EQ(shared.status, 0) << shared.error;
    }
    EXPECT_EQ(only_call("/usr/lib/nfs/mountd").arguments, (std::vector<std::string>{"/usr/lib/nfs/mountd"}));
    EXPECT_EQ(only_call("/usr/lib/nfs/nfsd").arguments,
              (std::vector<std::string>{"/usr/lib/nfs/nfsd", "-a", "16"}));
    std::filesystem::remove("/usr/sbin/share"); // a preview asks it what is shared
}

TEST_F(RealDaemons, UserIsToldWhenNoClientFindsADaemon) {
    // That of another test dies in its own time.
    tests::eventually([] { return check_daemon("mountd", nullptr) != HOSTADM_DAEMON_RUNNING; });
    const auto run = hostadm("run host/start_daemon path=/usr/lib/nfs/mountd");
    only_call("/usr/lib/nfs/mountd");
    EXPECT_THAT(run.output, HasSubstr("started"));
    EXPECT_THAT(run.output, HasSubstr("rpcbind does not answer, so that no client finds it"));
    EXPECT_THAT(hostadm("run host/start_daemon path=/usr/sbin/rpld").output,
                testing::Not(HasSubstr("rpcbind")));
    only_call("/usr/sbin/rpld"); // or it would be counted in another test
}

TEST_F(RealDaemons, PreviewSeesADaemonThatRuns) {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // a previewed method sees the live processes, not itself
    const Running daemon("/usr/lib/nfs/nfsd", {"/usr/lib/nfs/nfsd", "-a", "16"});
    standin::wait_for_calls("/usr/lib/nfs/nfsd", 1);
    const auto started = hostadm("preview host/start_daemon path=/usr/lib/nfs/nfsd args='-a 16'");
    const auto checked = hostadm("preview host/check_daemon name=nfsd");
    unsetenv("ASAN_OPTIONS");
    EXPECT_EQ(started.status, 0) << started.error;
    EXPECT_THAT(started.output, HasSubstr("running already"));
    EXPECT_THAT(started.output, HasSubstr(std::to_string(daemon.id())));
    EXPECT_THAT(started.output, testing::Not(HasSubstr("Commands:")));
    EXPECT_THAT(checked.output, HasSubstr(std::to_string(daemon.id())));
    EXPECT_EQ(standin::calls().size(), 1u);
    EXPECT_EQ(waitpid(daemon.id(), nullptr, WNOHANG), 0) << "it still runs";
}

TEST_F(RealDaemons, PreviewStartsNone) {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // as above
    const std::pair<const char *, const char *> starts[] = {
        {"path=/usr/lib/nfs/nfsd args='-a 16'", "Commands:\n  /usr/lib/nfs/nfsd -a 16\n\n"},
        {"path=/usr/sbin/in.rarpd args=le0", "Commands:\n  /usr/sbin/in.rarpd -a\n\n"},
        {"path=/usr/local/sbin/otherd", "Commands:\n  /usr/local/sbin/otherd\n\n"}};
    install("/usr/local/sbin/otherd");
    for (const auto &[arguments, commands] : starts) {
        const auto result = hostadm(std::string("preview host/start_daemon ") + arguments);
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_THAT(result.output, HasSubstr(commands));
    }
    unsetenv("ASAN_OPTIONS");
    EXPECT_TRUE(standin::calls().empty());
}

TEST_F(RealDaemons, UserMustNameADaemonOrAnInterface) {
    const auto none = hostadm("run host/check_daemon");
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.error, HasSubstr("name="));
    const auto both = hostadm("run host/check_daemon name=in.rarpd interface=le0");
    EXPECT_EQ(both.status, 2);
    EXPECT_THAT(both.error, HasSubstr("not both"));
}

TEST_F(RealDaemons, BadArgumentsAreRefusedByName) {
    const std::pair<const char *, const char *> wrong[] = {
        {"run host/check_daemon name='a b'", "name"},
        {"run host/check_daemon name=/usr/lib/nfs/nfsd", "name"},
        {"run host/check_daemon interface='le0;reboot'", "interface"},
        {"run host/start_daemon", "path"},
        {"run host/start_daemon path=nfsd", "path"},
        {"run host/start_daemon path='/usr/lib/nfs/nfsd;reboot'", "path"},
        {"run host/start_daemon path=/usr/lib/nfs/nfsd colour=red", "colour"},
    };
    for (const auto &[arguments, name] : wrong) {
        const auto result = hostadm(arguments);
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_THAT(result.error, HasSubstr(name)) << arguments;
    }
    EXPECT_TRUE(standin::calls().empty());
}
