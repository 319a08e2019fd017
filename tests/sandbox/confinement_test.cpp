// SPDX-License-Identifier: MIT
// What a confined command cannot do, each tried as somebody would who wants to leave; and what it still can.
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/kexec.h>
#include <linux/reboot.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/klog.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/reboot.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm/sandbox.hpp"
#include "support/scratch.hpp"

namespace fs = std::filesystem;
using hostadm::sandbox::Error;
using hostadm::sandbox::Options;

namespace {

// A process of the running system, whose files are what an attack is after.
class Victim {
public:
    explicit Victim(uid_t user = 0) : process_(fork()) {
        if (process_ == 0) {
            if (user != 0 && (setgid(user) != 0 || setuid(user) != 0))
                _exit(1);
            for (;;)
                pause();
        }
    }
    ~Victim() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Victim(const Victim &) = delete;
    Victim &operator=(const Victim &) = delete;
    pid_t process() const { return process_; }
    std::string path(const std::string &below) const {
        return "/proc/" + std::to_string(process_) + "/" + below;
    }

private:
    pid_t process_;
};

// Runs an attack; it returns "" when it failed, and else what it could do.
void expect_refused(const std::function<std::string()> &attack, bool confined = true) {
    if (geteuid() != 0)
        GTEST_SKIP() << "a private root can only be made by root";
    Options options;
    options.confined = confined;
    options.live_processes = true;
    options.live_network = true;
    options.time_limit = std::chrono::seconds(60);
    options.work = [&] {
        const std::string could = attack();
        if (!could.empty())
            std::fprintf(stderr, "it could %s\n", could.c_str());
        return could.empty() ? 0 : 1;
    };
    EXPECT_EQ(hostadm::sandbox::run(options).exit_status, 0);
}

TEST(Confined, DoesNotLeaveThroughAProcessOfTheRunningSystem) {
    for (const uid_t user : {0u, 65534u}) {
        const Victim victim(user);
        expect_refused([&]() -> std::string {
            // As its own user, and with as few rights as it has.
            if (user != 0 && (setgid(user) != 0 || setuid(user) != 0))
                return "not become another user, which it needs for this test";
            for (const char *way :
                 {"root/etc/passwd", "cwd", "root", "exe", "fd/0", "mem", "environ", "ns/mnt"})
                if (const int file = open(victim.path(way).c_str(), O_RDONLY); file >= 0)
                    return std::string("open ") + way + " of a live process";
            return "";
        });
    }
}

TEST(Confined, SeesOfTheRunningSystemsProcessesOnlyWhetherDaemonsRun) {
    for (const uid_t user : {0u, 65534u}) {
        const Victim victim(user);
        expect_refused([&]() -> std::string {
            const std::string stat = tests::content(victim.path("stat"));
            if (!stat.starts_with(std::to_string(victim.process()) + " (sandbox_confine) "))
                return "not tell whether a daemon runs: " + stat;
            for (const char *way : {"status", "maps", "limits", "cgroup", "mountinfo", "task", "net/tcp",
                                    "io", "sessionid", "oom_score", "wchan"})
                if (access(victim.path(way).c_str(), F_OK) == 0)
                    return std::string("see ") + way + " of a live process";
            if (const int file = open(victim.path("comm").c_str(), O_WRONLY); file >= 0)
                return "rename a live process";
            if (umount2(victim.path("").c_str(), MNT_DETACH) == 0)
                return "take down what covers a live process";
            // Its own stay open to it.
            if (tests::content("/proc/self/status").empty())
                return "not see itself";
            return "";
        });
    }
}

TEST(Confined, SeesOfASessionsCommandOnlyItsName) {
    const pid_t session = fork();
    if (session == 0) {
        if (setgid(65534) == 0 && setuid(65534) == 0)
            execl("/bin/sleep", "sleep", "86399", nullptr);
        _exit(1);
    }
    const std::string words = "/proc/" + std::to_string(session) + "/cmdline";
    while (tests::content(words) != std::string("sleep\0"
                                                "86399\0",
                                                12))
        usleep(1'000);
    expect_refused([&]() -> std::string {
        const std::string seen = tests::content(words);
        return seen == std::string("sleep\0", 6) ? "" : "see \"" + seen + "\"";
    });
    kill(session, SIGKILL);
    waitpid(session, nullptr, 0);
}

TEST(Confined, EntersNoNameSpaceOfTheRunningSystem) {
    const int mounts = open("/proc/self/ns/mnt", O_RDONLY);
    ASSERT_GE(mounts, 0);
    expect_refused([&]() -> std::string {
        if (setns(mounts, CLONE_NEWNS) == 0)
            return "enter the live mount name space";
        return "";
    });
    close(mounts);
}

TEST(Confined, TracesAndSignalsNoProcessOfTheRunningSystem) {
    const Victim victim;
    expect_refused([&]() -> std::string {
        if (ptrace(PTRACE_SEIZE, victim.process(), nullptr, nullptr) == 0)
            return "trace a live process";
        char byte = 0;
        iovec here{&byte, 1}, there{&byte, 1};
        if (process_vm_readv(victim.process(), &here, 1, &there, 1, 0) == 1)
            return "read a live process's memory";
        const int directory = open(victim.path("").c_str(), O_RDONLY | O_DIRECTORY);
        if (directory >= 0 && syscall(SYS_pidfd_send_signal, directory, SIGTERM, nullptr, 0) == 0)
            return "signal a live process";
        return "";
    });
    EXPECT_EQ(kill(victim.process(), 0), 0);
    EXPECT_EQ(waitpid(victim.process(), nullptr, WNOHANG), 0);
}

TEST(Confined, OpensNoFileByItsNumber) {
    expect_refused([]() -> std::string {
        alignas(file_handle) char space[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
        auto *handle = reinterpret_cast<file_handle *>(space);
        handle->handle_bytes = MAX_HANDLE_SZ;
        int mount = 0;
        const int root = open("/", O_RDONLY | O_DIRECTORY);
        if (name_to_handle_at(AT_FDCWD, "/etc/passwd", handle, &mount, 0) == 0 &&
            open_by_handle_at(root, handle, O_RDONLY) >= 0)
            return "open a file by its number";
        errno = 0;
        return open_by_handle_at(root, handle, O_RDONLY) < 0 && errno == EPERM ? "" : "try it";
    });
}

TEST(Confined, OpensNoDeviceThatItMade) {
    expect_refused([]() -> std::string {
        const dev_t memory = makedev(1, 1), null = makedev(1, 3);
        fs::create_directories("/var/tmp/made");
        const bool mounted = mount("own", "/var/tmp/made", "tmpfs", 0, nullptr) == 0;
        for (const dev_t device : {memory, null})
            for (const char *place : {"/var/tmp/node", "/var/tmp/made/node"}) {
                unlink(place);
                if (mknod(place, S_IFCHR | 0666, device) == 0 && open(place, O_RDONLY) >= 0)
                    return std::string("open a device made at ") + place;
            }
        return mounted ? "" : "not mount for itself";
    });
}

TEST(Confined, MakesDeviceNodesOfATree) {
    expect_refused([]() -> std::string {
        fs::create_directories("/var/tmp/tree/dev");
        umask(022);
        if (mknod("/var/tmp/tree/dev/null", S_IFCHR | 0666, makedev(1, 3)) != 0)
            return "not make a device node";
        if (chdir("/var/tmp/tree") != 0 || mknod("dev/sd0a", S_IFBLK | 0600, makedev(300, 70000)) != 0)
            return "not make one by a relative path";
        const int directory = open("dev", O_RDONLY | O_DIRECTORY);
        if (mknodat(directory, "zero", S_IFCHR | 0600, makedev(1, 5)) != 0)
            return "not make one below an open directory";
        struct stat node {};
        if (stat("dev/sd0a", &node) != 0 || node.st_rdev != makedev(300, 70000) || !S_ISBLK(node.st_mode))
            return "not make the node that was wanted";
        if (stat("dev/null", &node) != 0 || (node.st_mode & 07777) != 0644)
            return "not make it with the mode that was wanted";
        errno = 0;
        if (mknod("dev/null", S_IFCHR | 0666, makedev(1, 3)) == 0 || errno != EEXIST)
            return "not be told that it is there";
        if (mknod("/nowhere/null", S_IFCHR | 0666, makedev(1, 3)) == 0 || errno != ENOENT)
            return "not be told that there is no such directory";
        return "";
    });
}

TEST(Confined, MakesNoDeviceNodeBeyondItsRoot) {
    const Victim victim;
    const std::string name = "var/tmp/hostadm-test-node";
    expect_refused([&]() -> std::string {
        if (mknod(victim.path("root/" + name).c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0)
            return "make a device node in the running system";
        if (symlink(victim.path("root").c_str(), "/var/tmp/link") != 0 ||
            mknod(("/var/tmp/link/" + name).c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0)
            return "make one there by way of a link";
        if (setuid(65534) != 0 || mknod("/var/tmp/node", S_IFCHR | 0666, makedev(1, 3)) == 0)
            return "make one as an ordinary user";
        return "";
    });
    EXPECT_FALSE(fs::exists("/" + name));
}

TEST(Confined, MakesNoReadOnlyMountWritable) {
    expect_refused([]() -> std::string {
        if (mount(nullptr, "/proc", nullptr, MS_REMOUNT | MS_BIND, nullptr) == 0)
            return "make /proc writable";
        if (umount2("/proc", MNT_DETACH) == 0)
            return "take /proc down";
        if (open("/proc/sys/kernel/core_pattern", O_WRONLY) >= 0 ||
            open("/proc/sysrq-trigger", O_WRONLY) >= 0)
            return "write the kernel's settings";
        fs::create_directories("/var/tmp/proc");
        if (mount("own", "/var/tmp/proc", "proc", 0, nullptr) == 0 &&
            open("/var/tmp/proc/sys/kernel/core_pattern", O_WRONLY) >= 0)
            return "write the kernel's settings through a /proc of its own";
        return "";
    });
}

TEST(Confined, ChangesNeitherClockNorKernel) {
    expect_refused([]() -> std::string {
        timeval now{};
        gettimeofday(&now, nullptr);
        if (settimeofday(&now, nullptr) == 0)
            return "set the clock";
        const timespec time{now.tv_sec, 0};
        if (clock_settime(CLOCK_REALTIME, &time) == 0)
            return "set the clock";
        char line[16];
        if (klogctl(3, line, sizeof line) >= 0 || klogctl(5, nullptr, 0) >= 0)
            return "read or clear the kernel's log";
        if (syscall(SYS_init_module, nullptr, 0, "") == 0 || errno != EPERM)
            return "load a module";
        if (syscall(SYS_kexec_load, 0, 0, nullptr, 0) == 0 || errno != EPERM)
            return "load a kernel";
        if (reboot(RB_DISABLE_CAD) == 0)
            return "change how the machine restarts";
        if (swapoff("/nowhere") == 0 || errno != EPERM)
            return "turn swap space off";
        return "";
    });
}

TEST(Confined, TypesNothingIntoItsTerminal) {
    expect_refused([]() -> std::string {
        const int terminal = posix_openpt(O_RDWR);
        char letter = 'x';
        if (terminal < 0)
            return "not open a terminal, which it needs for this test";
        return ioctl(terminal, TIOCSTI, &letter) == 0 || errno != EPERM ? "type into a terminal" : "";
    });
}

TEST(Confined, ChangesAndLeavesNoNetwork) {
    expect_refused([]() -> std::string {
        if (socket(AF_PACKET, SOCK_RAW, 0) >= 0)
            return "send raw packets";
        if (system("ip link set lo down 2>/dev/null") == 0)
            return "take an interface down";
        return "";
    });
}

TEST(Confined, StillWorksOnFilesMountsAndItsOwnProcesses) {
    expect_refused([]() -> std::string {
        const char *file = "/var/tmp/confined-file";
        if (close(open(file, O_WRONLY | O_CREAT, 0644)) != 0 || chown(file, 12, 34) != 0 ||
            chmod(file, 04755) != 0)
            return "not own a file";
        const int again = open("/etc/passwd", O_WRONLY | O_APPEND);
        if (again < 0 || write(again, "\n", 1) != 1)
            return "not write a system table";
        fs::create_directories("/var/tmp/bound");
        if (unshare(CLONE_NEWNS) != 0 || mount("/etc", "/var/tmp/bound", nullptr, MS_BIND, nullptr) != 0)
            return "not bind a directory for itself";
        const pid_t child = fork();
        if (child == 0) {
            pause();
            _exit(0);
        }
        if (setgid(34) != 0 || setuid(12) != 0)
            return "not become another user";
        return "";
    });
}

} // namespace
