// SPDX-License-Identifier: MIT
// The throwaway root: what is seen in it, what becomes of it, and that nothing of it reaches the running
// system.
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm/sandbox.hpp"
#include "support/eventually.hpp"
#include "support/scratch.hpp"

namespace fs = std::filesystem;
using hostadm::sandbox::Change;
using hostadm::sandbox::Changes;
using hostadm::sandbox::Error;
using hostadm::sandbox::FileType;
using hostadm::sandbox::Options;
using hostadm::sandbox::Outcome;
using hostadm::sandbox::run;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using tests::content;
using tests::eventually;

namespace {

std::string text_of(int fd) {
    std::string text;
    char buffer[4096];
    for (ssize_t size; (size = read(fd, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(size));
    close(fd);
    return text;
}

Options shell(const std::string &script) {
    Options options;
    options.command = {"/bin/sh", "-c", script};
    options.time_limit = std::chrono::seconds(60);
    return options;
}

// A directory of the running system that a test may fill, outside /tmp; it goes with the test.
class Sandbox : public testing::Test {
protected:
    // What it mounts, others who look at the running system
    // meanwhile do not see, and what they mount it does not.
    static void SetUpTestSuite() {
        if (geteuid() != 0)
            return;
        ASSERT_EQ(unshare(CLONE_NEWNS), 0);
        ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        ASSERT_EQ(mount("own", "/dev/shm", "tmpfs", 0, nullptr), 0);
        umask(022);
    }
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "a private root can only be made by root";
        char name[] = "/var/tmp/sandbox-test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory_ = name;
        chmod(name, 0755);
    }
    void TearDown() override {
        if (!directory_.empty())
            fs::remove_all(directory_);
    }

    void write(const std::string &name, const std::string &text) const {
        std::ofstream(directory_ / name) << text;
    }
    std::string in(const std::string &name) const { return directory_ / name; }

    // The changes below the test's directory, its own name left out, as "KIND PATH".
    std::vector<std::string> changes(const std::string &script) {
        Options options = shell("cd " + directory_.string() + " && { " + script + "; }");
        options.keep_changes = true;
        outcome_ = run(options);
        EXPECT_EQ(outcome_.exit_status, 0);
        std::vector<std::string> lines;
        for (const Change &change : outcome_.changes.list()) {
            if (change.path.rfind(directory_.string() + '/', 0) != 0)
                continue;
            const char *kind = change.added() ? "added " : change.removed() ? "removed " : "changed ";
            lines.push_back(kind + change.path.substr(directory_.string().size() + 1));
        }
        return lines;
    }
    const Change &change_of(const std::string &name) const {
        for (const Change &change : outcome_.changes.list())
            if (change.path == in(name))
                return change;
        throw std::runtime_error("no change of " + name);
    }

    fs::path directory_;
    Outcome outcome_;
};

// All processes whose command line holds the word.
std::vector<std::string> processes_with(const std::string &word) {
    std::vector<std::string> found;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc")) {
        const std::string command = content(entry.path() / "cmdline");
        if (command.find(word) != std::string::npos)
            found.push_back(entry.path().filename().string() + ' ' + command);
    }
    return found;
}

std::vector<std::string> names_in(const fs::path &directory) {
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory))
        names.push_back(entry.path().filename());
    return names;
}

int status_of(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The program of the throwaway root in a process of its own, ended with the test however that comes out.
class Program {
public:
    explicit Program(const std::vector<std::string> &arguments) : id_(fork()) {
        if (id_ == 0) {
            std::vector<char *> words = {const_cast<char *>(IN_SANDBOX)};
            for (const std::string &argument : arguments)
                words.push_back(const_cast<char *>(argument.c_str()));
            words.push_back(nullptr);
            execv(words[0], words.data());
            _exit(127);
        }
    }
    ~Program() {
        if (id_ > 0) {
            send(SIGKILL);
            status();
        }
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    void send(int signal) const { kill(id_, signal); }
    int status() {
        const int status = status_of(id_);
        id_ = -1;
        return status;
    }

private:
    pid_t id_;
};

// A time to sleep that no other run of this test uses, by which its processes are found.
std::string marked_sleep(int seconds) {
    return std::to_string(seconds) + '.' + std::to_string(getpid());
}

} // namespace

// ---- what stays private ----

TEST_F(Sandbox, ChangesNothingOfTheRunningSystem) {
    write("kept", "as it was\n");
    ASSERT_EQ(fs::create_directory(in("folder")), true);
    const auto before =
        std::make_tuple(content("/etc/passwd"), content("/etc/hosts"), names_in("/etc"),
                        content("/proc/self/mountinfo"), content("/proc/sys/kernel/hostname"));
    const Outcome outcome = run(shell("cd " + directory_.string() +
                                      " && echo changed >kept && rm -r folder && mkdir new && chmod 0 . &&"
                                      " echo x >>/etc/passwd && echo x >/etc/hosts && rm -r /etc/default &&"
                                      " mount -t tmpfs x /mnt && hostname other && rm -r /usr/share/doc"));
    EXPECT_EQ(outcome.exit_status, 0);
    EXPECT_EQ(before, std::make_tuple(content("/etc/passwd"), content("/etc/hosts"), names_in("/etc"),
                                      content("/proc/self/mountinfo"), content("/proc/sys/kernel/hostname")));
    EXPECT_EQ(content(in("kept")), "as it was\n");
    EXPECT_TRUE(fs::is_directory(in("folder")));
    EXPECT_FALSE(fs::exists(in("new")));
}

TEST_F(Sandbox, LeavesNothingInTemporaryDirectories) {
    const auto before = std::make_pair(fs::exists("/tmp/sandbox-test-file"), names_in("/dev/shm"));
    run(shell("touch /tmp/sandbox-test-file /dev/shm/sandbox-test-file"));
    EXPECT_EQ(before, std::make_pair(fs::exists("/tmp/sandbox-test-file"), names_in("/dev/shm")));
}

TEST_F(Sandbox, ShowsTheRunningSystem) {
    write("seen", "content\n");
    const Outcome outcome =
        run(shell("grep -q content " + in("seen") +
                  " && test -d /usr/bin && test -e /dev/null &&"
                  " echo x >/dev/null && test \"$HOSTADM_SANDBOX\" = 1 && test \"$PWD\" = \"$(pwd)\""));
    EXPECT_EQ(outcome.exit_status, 0);
    EXPECT_EQ(outcome.read_only, std::vector<std::string>());
}

TEST_F(Sandbox, StartsInTheCallersDirectory) {
    const fs::path old = fs::current_path();
    fs::current_path(directory_);
    const int status = run(shell("test \"$(pwd)\" = " + directory_.string())).exit_status;
    fs::current_path(old);
    EXPECT_EQ(status, 0);
}

TEST_F(Sandbox, SeesFileSystemsMountedBelowTheRoot) {
    ASSERT_TRUE(fs::create_directory(in("disk")));
    ASSERT_EQ(mount("disk", in("disk").c_str(), "tmpfs", 0, ""), 0);
    write("disk/file", "on the disk\n");
    const auto lines =
        changes("grep -q 'on the disk' disk/file && echo more >>disk/file && echo new >disk/new");
    EXPECT_THAT(lines, UnorderedElementsAre("changed disk/file", "added disk/new"));
    EXPECT_EQ(content(in("disk/file")), "on the disk\n");
    EXPECT_EQ(outcome_.changes.read_after(in("disk/file")), "on the disk\nmore\n");
    EXPECT_EQ(umount(in("disk").c_str()), 0) << "the throwaway root still holds the file system";
}

TEST_F(Sandbox, KeepsAReadOnlyFileSystemReadOnly) {
    ASSERT_TRUE(fs::create_directory(in("disk")));
    ASSERT_EQ(mount("disk", in("disk").c_str(), "tmpfs", MS_RDONLY, ""), 0);
    EXPECT_THAT(changes("! touch disk/new 2>/dev/null"), IsEmpty());
    EXPECT_EQ(umount(in("disk").c_str()), 0);
}

TEST_F(Sandbox, CopiesASingleFileThatIsMountedOverAnother) {
    write("original", "from elsewhere\n");
    write("place", "hidden\n");
    ASSERT_EQ(mount(in("original").c_str(), in("place").c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_THAT(changes("grep -q elsewhere place"), IsEmpty());
    EXPECT_THAT(changes("echo line >>place && mv place moved && mv moved place"),
                ElementsAre("changed place"));
    EXPECT_EQ(text_of(outcome_.changes.open_before(change_of("place"))), "from elsewhere\n");
    EXPECT_EQ(text_of(outcome_.changes.open_after(change_of("place"))), "from elsewhere\nline\n");
    EXPECT_EQ(content(in("original")), "from elsewhere\n");
    EXPECT_EQ(umount(in("place").c_str()), 0);
}

TEST_F(Sandbox, OpensNoDeviceOfTheHost) {
    EXPECT_EQ(run(shell("cd " + directory_.string() +
                        " && mknod disk b 7 0 && ! head -c 1 disk >/dev/null 2>&1 &&"
                        " ! head -c 1 /dev/loop0 >/dev/null 2>&1"))
                  .exit_status,
              0);
}

TEST_F(Sandbox, CannotChangeKernelSettings) {
    EXPECT_EQ(run(shell("! (echo 1 >/proc/sys/vm/swappiness) 2>/dev/null && ! (echo h >/proc/sysrq-trigger) "
                        "2>/dev/null"))
                  .exit_status,
              0);
}

TEST_F(Sandbox, HasItsOwnHostNameProcessesAndNetwork) {
    Options options = shell("test \"$(hostname)\" = box && test \"$(cat /proc/1/comm)\" != systemd && "
                            "test $(ls -d /proc/[0-9]* | wc -l) -lt 8 && "
                            "test $(grep -c : /proc/net/dev) = 1 && grep -q 'lo:' /proc/net/dev");
    options.host_name = "box";
    EXPECT_EQ(run(options).exit_status, 0);
}

TEST_F(Sandbox, HidesTheSocketsOfTheRunningSystem) {
    EXPECT_EQ(run(shell("test \"$(ls -A /run)\" = lock")).exit_status, 0);
}

TEST_F(Sandbox, ShowsTheLiveProcessesReadOnlyWhenAsked) {
    const std::string self = std::to_string(getpid());
    Options options = shell("grep -q sandbox /proc/" + self + "/cmdline && ! kill -0 " + self +
                            " 2>/dev/null && ! (echo 0 >/proc/" + self +
                            "/oom_score_adj) 2>/dev/null && grep -q grep /proc/self/cmdline");
    options.live_processes = true;
    EXPECT_EQ(run(options).exit_status, 0);
}

TEST_F(Sandbox, SharesABoundDirectory) {
    Options options = shell("echo result >" + in("result"));
    options.binds = {directory_};
    EXPECT_EQ(run(options).exit_status, 0);
    EXPECT_EQ(content(in("result")), "result\n");
}

TEST_F(Sandbox, PutsSeedsAndFilesInPlaceWhichAreNoChanges) {
    fs::create_directories(in("seed/usr/sbin"));
    fs::create_directories(in("seed/sbin"));
    write("seed/usr/sbin/seeded", "one\n");
    write("seed/sbin/through-a-link", "two\n");
    fs::create_symlink("seeded", in("seed/usr/sbin/link"));
    fs::permissions(in("seed/usr"), fs::perms::owner_all);
    struct stat live;
    ASSERT_EQ(stat("/usr", &live), 0);
    Options options = shell(
        "test $(stat -c %a /usr) = 755 && grep -q one /usr/sbin/link && grep -q two /usr/sbin/through-a-link"
        " && /opt/new/place/tool && echo more >>/usr/sbin/seeded");
    options.seeds = {in("seed")};
    options.files = {{.path = "/opt/new/place/tool", .content = "#!/bin/sh\nexit 0\n"}};
    options.keep_changes = true;
    const Outcome outcome = run(options);
    EXPECT_EQ(outcome.exit_status, 0);
    ASSERT_EQ(outcome.changes.list().size(), 1u) << outcome.changes.list()[0].path;
    const Change &change = outcome.changes.list()[0];
    EXPECT_EQ(change.path, "/usr/sbin/seeded");
    EXPECT_EQ(text_of(outcome.changes.open_before(change)), "one\n");
    EXPECT_EQ(text_of(outcome.changes.open_after(change)), "one\nmore\n");
}

TEST_F(Sandbox, NestsInAnother) {
    EXPECT_EQ(
        run(shell(std::string(IN_SANDBOX) + " -- /bin/sh -c 'test -e /etc/passwd && echo x >/etc/nested' && "
                                            "test ! -e /etc/nested"))
            .exit_status,
        0);
}

// ---- the list of changes ----

TEST_F(Sandbox, ListsNothingWhenNothingChanged) {
    write("file", "text\n");
    EXPECT_THAT(
        changes(
            "cat file >/dev/null; cp -p file copy; mv copy file; chmod 600 file; chmod 644 file; touch file"),
        IsEmpty());
    EXPECT_EQ(outcome_.changes.list().size(), 0u);
}

TEST_F(Sandbox, ListsContentModeOwnerAndLinks) {
    write("text", "one\ntwo\n");
    write("mode", "same\n");
    write("owner", "same\n");
    fs::create_symlink("text", in("link"));
    fs::create_directory(in("folder"));
    EXPECT_THAT(
        changes("echo three >>text; chmod 600 mode; chown 3:4 owner; ln -sf mode link; chmod 700 folder"),
        UnorderedElementsAre("changed text", "changed mode", "changed owner", "changed link",
                             "changed folder"));
    EXPECT_TRUE(change_of("text").content_differs);
    EXPECT_EQ(text_of(outcome_.changes.open_before(change_of("text"))), "one\ntwo\n");
    EXPECT_EQ(text_of(outcome_.changes.open_after(change_of("text"))), "one\ntwo\nthree\n");
    EXPECT_FALSE(change_of("mode").content_differs);
    EXPECT_EQ(change_of("mode").before.mode, 0644u);
    EXPECT_EQ(change_of("mode").after.mode, 0600u);
    EXPECT_EQ(change_of("owner").after.uid, 3u);
    EXPECT_EQ(change_of("owner").after.gid, 4u);
    EXPECT_EQ(change_of("link").before.target, "text");
    EXPECT_EQ(change_of("link").after.target, "mode");
}

TEST_F(Sandbox, ListsAddedFilesOneByOne) {
    EXPECT_THAT(changes("mkdir -p a/b; echo x >a/b/file; ln -s file a/b/link; mkfifo a/pipe"),
                ElementsAre("added a", "added a/b", "added a/b/file", "added a/b/link", "added a/pipe"));
    EXPECT_EQ(change_of("a/b").after.type, FileType::directory);
    EXPECT_EQ(change_of("a/b/link").after.type, FileType::link);
    EXPECT_EQ(change_of("a/pipe").after.type, FileType::other);
}

TEST_F(Sandbox, ListsARemovedDirectoryOnceWithTheNumberOfItsFiles) {
    fs::create_directories(in("old/deep"));
    write("old/one", "1");
    write("old/deep/two", "2");
    write("alone", "3");
    EXPECT_THAT(changes("rm -r old alone"), ElementsAre("removed alone", "removed old"));
    EXPECT_EQ(outcome_.changes.files_before(change_of("old")), 2u);
    EXPECT_EQ(outcome_.changes.files_before(change_of("alone")), 0u);
}

TEST_F(Sandbox, ComparesADirectoryThatWasMadeAnew) {
    fs::create_directory(in("folder"));
    write("folder/same", "same\n");
    write("folder/other", "old\n");
    write("folder/gone", "gone\n");
    EXPECT_THAT(
        changes(
            "rm -r folder; mkdir folder; echo same >folder/same; echo new >folder/other; echo n >folder/new"),
        UnorderedElementsAre("removed folder/gone", "added folder/new", "changed folder/other"));
}

TEST_F(Sandbox, FollowsARenamedDirectory) {
    fs::create_directory(in("old"));
    write("old/file", "content\n");
    EXPECT_THAT(changes("python3 -c 'import os; os.rename(\"old\", \"new\")' 2>/dev/null || mv old new; echo "
                        "x >>new/file"),
                UnorderedElementsAre("added new", "added new/file", "removed old"));
    EXPECT_EQ(outcome_.changes.read_after(in("new/file")), "content\nx\n");
}

TEST_F(Sandbox, ListsAFileThatBecameADirectoryAndTheReverse) {
    write("file", "x");
    fs::create_directory(in("folder"));
    write("folder/inner", "x");
    EXPECT_THAT(changes("rm -r file folder; mkdir file; echo y >file/inner; echo z >folder"),
                ElementsAre("changed file", "added file/inner", "changed folder"));
    EXPECT_EQ(change_of("folder").before.type, FileType::directory);
    EXPECT_EQ(change_of("folder").after.type, FileType::regular);
}

TEST_F(Sandbox, ReadsFilesAsTheyWereLeft) {
    write("kept", "kept\n");
    write("gone", "gone\n");
    changes("rm gone; echo made >made");
    EXPECT_EQ(outcome_.changes.read_after(in("kept")), "kept\n");
    EXPECT_EQ(outcome_.changes.read_after(in("made")), "made\n");
    EXPECT_EQ(outcome_.changes.read_after(in("gone")), std::nullopt);
}

TEST_F(Sandbox, KeepsTheChangesOfARunThatRanOutOfTime) {
    Options options = shell("echo x >" + in("made") + "; sleep 600");
    options.time_limit = std::chrono::seconds(2);
    options.keep_changes = true;
    const Outcome outcome = run(options);
    EXPECT_TRUE(outcome.timed_out);
    EXPECT_EQ(outcome.exit_status, 124);
    EXPECT_EQ(outcome.changes.read_after(in("made")), "x\n");
}

// ---- how it ends ----

TEST_F(Sandbox, HandsOutTheExitStatus) {
    EXPECT_EQ(run(shell("exit 7")).exit_status, 7);
    EXPECT_EQ(run(shell("kill -SEGV $$")).exit_status, 128 + SIGSEGV);
    Options options;
    options.work = [] { return 5; };
    EXPECT_EQ(run(options).exit_status, 5);
}

TEST_F(Sandbox, EndsWhatTheCommandLeftRunning) {
    const std::string time = marked_sleep(98761);
    run(shell("setsid sleep " + time + " & exit 0"));
    EXPECT_THAT(processes_with(time), IsEmpty());
}

TEST_F(Sandbox, EndsOnASignalToItsCaller) {
    const std::string time = marked_sleep(98762);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Program program({"--", "/bin/sh", "-c", "trap '' INT TERM HUP; sleep " + time + "; true"});
        ASSERT_TRUE(
            eventually([&] { return !processes_with("sleep" + std::string(1, '\0') + time).empty(); }));
        program.send(signal);
        EXPECT_EQ(program.status(), 128 + signal);
        EXPECT_THAT(processes_with(time), IsEmpty());
    }
}

TEST_F(Sandbox, EndsWhenItsCallerIsKilled) {
    const std::string mark = in("inside"), time = marked_sleep(98763);
    Program program(
        {"--bind", directory_, "--", "/bin/sh", "-c", "touch " + mark + "; sleep " + time + "; true"});
    ASSERT_TRUE(eventually([&] { return fs::exists(mark); }));
    program.send(SIGKILL);
    EXPECT_EQ(program.status(), 128 + SIGKILL);
    EXPECT_TRUE(eventually([&] { return processes_with(time).empty(); }));
}

TEST_F(Sandbox, EndsAtItsTimeLimit) {
    const std::string time = marked_sleep(98764);
    Program program({"--time-limit", "0.3", "--", "/bin/sh", "-c", "trap '' TERM; sleep " + time + "; true"});
    EXPECT_EQ(program.status(), 124);
    EXPECT_THAT(processes_with(time), IsEmpty());
}

TEST_F(Sandbox, LeaksNoDescriptorsOrProcessesOverManyRuns) {
    const auto open_files = [] { return names_in("/proc/self/fd").size(); };
    run(shell("true"));
    const auto before = open_files();
    for (int i = 0; i < 50; ++i) {
        Options options = shell("echo x >/etc/x");
        options.keep_changes = true;
        EXPECT_EQ(run(options).changes.list().size(), 1u);
    }
    EXPECT_EQ(open_files(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was not waited for";
}

// ---- what can go wrong ----

TEST_F(Sandbox, SaysWhatCouldNotBeStarted) {
    Options options;
    options.command = {"/no/such/command"};
    try {
        run(options);
        FAIL() << "started";
    } catch (const Error &error) {
        EXPECT_EQ(error.kind(), Error::Kind::command);
        EXPECT_STREQ(error.what(), "start /no/such/command: No such file or directory");
    }
}

TEST_F(Sandbox, SaysWhichStepFailed) {
    Options options = shell("true");
    options.seeds = {in("no-such-seed")};
    try {
        run(options);
        FAIL() << "ran";
    } catch (const Error &error) {
        EXPECT_EQ(error.kind(), Error::Kind::setup);
        EXPECT_EQ(error.what(),
                  "open the seed directory " + in("no-such-seed") + ": No such file or directory");
    }
}

TEST_F(Sandbox, TellsAnOrdinaryUserThatRootIsNeeded) {
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            _exit(3);
        try {
            run(shell("true"));
            _exit(4);
        } catch (const Error &error) {
            _exit(error.kind() == Error::Kind::unavailable &&
                          std::string(error.what()) ==
                              "a private root can only be made by root: Operation not permitted"
                      ? 0
                      : 5);
        }
    }
    EXPECT_EQ(status_of(child), 0);
}

TEST_F(Sandbox, RefusesToRunNothing) {
    EXPECT_THROW(run({}), Error);
}

// ---- the program ----

TEST_F(Sandbox, ProgramRefusesUnknownOptions) {
    EXPECT_EQ(WEXITSTATUS(std::system(IN_SANDBOX " --nonsense -- true 2>/dev/null")), 2);
    EXPECT_EQ(WEXITSTATUS(std::system(IN_SANDBOX " --time-limit x -- true 2>/dev/null")), 2);
    EXPECT_EQ(WEXITSTATUS(std::system(IN_SANDBOX " 2>/dev/null")), 2);
}

TEST_F(Sandbox, ProgramTellsWhyACommandDidNotStart) {
    EXPECT_EQ(WEXITSTATUS(std::system(IN_SANDBOX " -- /no/such/command 2>/dev/null")), 127);
    EXPECT_EQ(WEXITSTATUS(std::system(IN_SANDBOX " -- /etc/passwd 2>/dev/null")), 126);
    EXPECT_EQ(WEXITSTATUS(std::system(IN_SANDBOX " --bind /no/such/directory -- true 2>/dev/null")), 125);
}
