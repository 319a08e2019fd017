// SPDX-License-Identifier: MIT
#include "server/tree_program.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/translation.hpp"

namespace hostadm::server {

namespace {

constexpr int cannot_enter = 125; // an exit status
constexpr std::array devices = {"null", "zero", "full", "random", "urandom"};
constexpr std::array kept_rights = {CAP_CHOWN,  CAP_DAC_OVERRIDE, CAP_FOWNER, CAP_FSETID,
                                    CAP_SETUID, CAP_SETGID,       CAP_KILL};

[[noreturn]] void fail(const std::string &what) {
    throw CannotEnterTree(base::tr("not possible: {1}: {2}", what, std::strerror(errno)));
}

void mount_fresh(const char *type, const char *place, unsigned long flags, const char *options) {
    if (::mount(type, place, type, flags | MS_NOSUID, options) != 0)
        fail(base::tr("mount {1}", place));
}

void bind(const std::string &from, const std::string &to) {
    if (::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0)
        fail(base::tr("bind {1}", from));
}

// From the tree's own folder, so that no link in it leads out.
void enter(const std::string &tree) {
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        fail(base::tr("cut its mounts off from this system's"));
    bind(tree, tree);
    if (::mount(nullptr, tree.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_NOSUID | MS_NODEV, nullptr) != 0)
        fail(base::tr("restrict the mount of {1}", tree));
    if (chdir(tree.c_str()) != 0)
        fail(base::tr("enter {1}", tree));
    for (const char *folder : {"dev", "proc", "run", "tmp"})
        if (struct stat found{}; lstat(folder, &found) != 0 || !S_ISDIR(found.st_mode))
            throw CannotEnterTree(base::tr("{1}/{2} is no directory", tree, folder));
    mount_fresh("tmpfs", "dev", 0, "mode=0755,size=1m");
    for (const char *device : devices) {
        const std::string place = std::string("dev/") + device;
        const base::Descriptor file(open(place.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        bind(std::string("/dev/") + device, place);
    }
    if (symlink("/proc/self/fd", "dev/fd") != 0)
        fail(base::tr("make dev/fd"));
    mount_fresh("proc", "proc", MS_NODEV | MS_NOEXEC, nullptr);
    mount_fresh("tmpfs", "run", MS_NODEV, "mode=0755,size=64m");
    mount_fresh("tmpfs", "tmp", MS_NODEV, "mode=1777,size=2g");
    if (syscall(SYS_pivot_root, ".", ".") != 0 || umount2(".", MNT_DETACH) != 0 || chdir("/") != 0)
        fail(base::tr("make {1} the root", tree));
}

void give_up_rights() {
    for (int right = 0; prctl(PR_CAPBSET_READ, right, 0, 0, 0) >= 0; ++right)
        if (std::find(kept_rights.begin(), kept_rights.end(), right) == kept_rights.end() &&
            prctl(PR_CAPBSET_DROP, right, 0, 0, 0) != 0)
            fail(base::tr("give up rights"));
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        fail(base::tr("give up new rights"));
}

[[noreturn]] void become(const std::string &tree, std::vector<std::string> words, int output) try {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    enter(tree);
    give_up_rights();
    const base::Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    // It may have got the number itself, and then dup2 changes nothing.
    if (dup2(nothing.get(), STDIN_FILENO) < 0 || fcntl(STDIN_FILENO, F_SETFD, 0) != 0 ||
        dup2(output, STDOUT_FILENO) < 0 || dup2(output, STDERR_FILENO) < 0 ||
        syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0) != 0)
        fail(base::tr("hand over its descriptors"));
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    umask(022);
    std::vector<char *> list;
    for (std::string &word : words)
        list.push_back(word.data());
    list.push_back(nullptr);
    char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin", language[] = "LC_ALL=C.UTF-8", home[] = "HOME=/root";
    char *environment[] = {path, language, home, nullptr};
    execve(list.front(), list.data(), environment);
    fail(base::tr("start {1}", words.front()));
} catch (const std::exception &failure) {
    dprintf(output, "%s\n", failure.what());
    _exit(cannot_enter);
}

// Waits for the one process of its own process name space, which goes with this.
[[noreturn]] void watch(const std::string &tree, const std::vector<std::string> &words, unsigned time_limit,
                        int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (unshare(CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS) != 0) {
        dprintf(output, "%s\n", base::tr("cannot make name spaces: {1}", std::strerror(errno)).c_str());
        _exit(cannot_enter);
    }
    const pid_t child = fork();
    if (child == 0)
        become(tree, words, output);
    if (child < 0) {
        dprintf(output, "%s\n", base::tr("cannot start a process: {1}", std::strerror(errno)).c_str());
        _exit(cannot_enter);
    }
    std::signal(SIGALRM, SIG_DFL);
    alarm(time_limit);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

} // namespace

TreeProgramEnd run_in_tree(const std::string &tree, const std::vector<std::string> &words,
                           unsigned time_limit) {
    const base::Descriptor output(memfd_create("output", MFD_CLOEXEC));
    if (!output.is_open())
        fail(base::tr("keep its output"));
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        fail(base::tr("start a process"));
    if (child == 0)
        watch(tree, words, time_limit, output.get());
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const std::string said = base::read_whole(output.get()).value_or("");
    if (WIFEXITED(status) && WEXITSTATUS(status) == cannot_enter)
        throw CannotEnterTree(said.substr(0, said.find('\n')));
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), said};
}

} // namespace hostadm::server
