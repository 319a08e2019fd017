// SPDX-License-Identifier: MIT
#include "server/confined.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <linux/capability.h>
#include <linux/landlock.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "base/translation.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;
using base::Descriptor;

namespace {

constexpr const char *temporary = "/tmp";
constexpr const char *null_device = "/dev/null";
constexpr std::uint64_t harmless = MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV;

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

Descriptor clone_of(const std::string &path) {
    Descriptor clone(open_tree(AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE));
    if (!clone.is_open())
        fail(base::tr("cannot bind {1}", path));
    return clone;
}

void set_attributes(int mount, const char *path, std::uint64_t attributes) {
    mount_attr attribute{};
    attribute.attr_set = attributes;
    if (mount_setattr(mount, path, AT_RECURSIVE | AT_EMPTY_PATH, &attribute, sizeof attribute) != 0)
        fail(*path == '\0' ? base::tr("cannot restrict the mount of the root")
                           : base::tr("cannot restrict the mount of {1}", path));
}

void attach(const Descriptor &mount, const std::string &path) {
    if (move_mount(mount.get(), "", AT_FDCWD, path.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        fail(base::tr("cannot bind {1}", path));
}

bool is_temporary(const std::string &path) {
    return is_at_or_below(path, temporary);
}

// What the process sees. `stage` takes the root's place if it is open.
void change_view(const std::string &root, int stage, const Confinement &how) {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        fail(base::tr("cannot make a view of the file systems of its own"));
    std::vector<std::pair<std::string, Descriptor>> shown; // again, over what hides or restricts it
    for (const char *device : {null_device, "/dev/zero", "/dev/random", "/dev/urandom"})
        if (access(device, F_OK) == 0)
            shown.emplace_back(device, clone_of(device));
    for (const std::string &source : how.sources)
        if (const std::string real = fs::weakly_canonical(source);
            (is_temporary(real) || how.sources_are_clients) && fs::exists(real)) {
            shown.emplace_back(real, clone_of(real));
            set_attributes(shown.back().second.get(), "",
                           MOUNT_ATTR_RDONLY | harmless | MOUNT_ATTR_NOEXEC |
                               (how.sources_are_clients ? MOUNT_ATTR_NOSYMFOLLOW : 0));
        }
    Descriptor there = stage >= 0 ? Descriptor(fcntl(stage, F_DUPFD_CLOEXEC, 0)) : clone_of(root);
    set_attributes(there.get(), "",
                   harmless | (how.links_are_followed ? 0 : MOUNT_ATTR_NOSYMFOLLOW) |
                       (how.programs_run && stage >= 0 ? 0 : MOUNT_ATTR_NOEXEC));

    set_attributes(AT_FDCWD, "/", MOUNT_ATTR_RDONLY | MOUNT_ATTR_NODEV);
    if (mount("tmpfs", temporary, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_NOSYMFOLLOW, "mode=0700") !=
        0)
        fail(base::tr("cannot make a /tmp of its own"));
    shown.emplace_back(root, std::move(there));
    for (const auto &[path, mount] : shown) {
        if (is_temporary(path))
            fs::create_directories(path);
        attach(mount, path);
    }
    if (chdir("/") != 0 || setenv("TMPDIR", temporary, 1) != 0)
        fail(base::tr("cannot enter the view"));
}

// Of the newer kernels, which the headers need not know.
constexpr std::uint64_t landlock_truncate = 1ULL << 14U;

void allow(int rules, const std::string &path, std::uint64_t access) {
    const Descriptor place(open(path.c_str(), O_PATH | O_CLOEXEC));
    landlock_path_beneath_attr rule{};
    rule.allowed_access = access;
    rule.parent_fd = place.get();
    if (!place.is_open() || syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0)
        fail(base::tr("cannot allow writes to {1}", path));
}

// A kernel without Landlock has the view alone.
void limit_writes(const std::string &root) {
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1)
        return;
    std::uint64_t files = LANDLOCK_ACCESS_FS_WRITE_FILE;
    if (version >= 3)
        files |= landlock_truncate;
    std::uint64_t writes = files | LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                           LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR |
                           LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                           LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                           LANDLOCK_ACCESS_FS_MAKE_SYM;
    if (version >= 2)
        writes |= LANDLOCK_ACCESS_FS_REFER;
    landlock_ruleset_attr attribute{};
    attribute.handled_access_fs = writes;
    const Descriptor rules(
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &attribute, sizeof attribute, 0)));
    if (!rules.is_open())
        fail(base::tr("cannot limit where it writes"));
    allow(rules.get(), root, writes);
    allow(rules.get(), temporary, writes);
    allow(rules.get(), null_device, files);
    if (syscall(SYS_landlock_restrict_self, rules.get(), 0) != 0)
        fail(base::tr("cannot limit where it writes"));
}

// Only what it takes to fill a root: nothing that would undo the view.
void drop_capabilities() {
    constexpr std::uint64_t kept = 1ULL << CAP_CHOWN | 1ULL << CAP_DAC_OVERRIDE |
                                   1ULL << CAP_DAC_READ_SEARCH | 1ULL << CAP_FOWNER | 1ULL << CAP_FSETID |
                                   1ULL << CAP_KILL | 1ULL << CAP_SETGID | 1ULL << CAP_SETUID |
                                   1ULL << CAP_MKNOD | 1ULL << CAP_SETFCAP;
    for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability)
        if ((kept >> static_cast<unsigned>(capability) & 1U) == 0)
            prctl(PR_CAPBSET_DROP, capability);
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2]{};
    if (syscall(SYS_capget, &header, sets) != 0)
        fail(base::tr("cannot tell its capabilities"));
    for (unsigned half = 0; half < 2; ++half) {
        const auto mask = static_cast<std::uint32_t>(kept >> 32U * half);
        sets[half].effective &= mask;
        sets[half].permitted &= mask;
        sets[half].inheritable = 0;
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || syscall(SYS_capset, &header, sets) != 0)
        fail(base::tr("cannot give up its capabilities"));
}

// What the child says at its end.
struct Report {
    bool is_status = false;
    int status = 0;
    char text[1024] = {}; // why there is none
};

[[noreturn]] void work_confined(const std::string &root, int stage, const std::function<int()> &work,
                                const Confinement &how, int answer) {
    Report report;
    try {
        try {
            change_view(root, stage, how);
            limit_writes(root);
            drop_capabilities();
        } catch (const std::exception &failure) {
            throw std::runtime_error(base::tr(
                "the work in {1} cannot be shut in there, so nothing was done: {2}", root, failure.what()));
        }
        report.status = work();
        report.is_status = true;
    } catch (const std::exception &failure) {
        std::snprintf(report.text, sizeof report.text, "%s", failure.what());
    }
    std::fflush(nullptr);
    const bool told = write(answer, &report, sizeof report) == sizeof report;
    _exit(told ? 0 : 1);
}

constexpr int interruptions[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// While it lives, the signals that end a process wait; the child gets them first.
class SignalsWait {
public:
    SignalsWait() {
        sigemptyset(&awaited_);
        for (const int signal : interruptions)
            sigaddset(&awaited_, signal);
        sigaddset(&awaited_, SIGCHLD);
        sigprocmask(SIG_BLOCK, &awaited_, &before_);
        struct sigaction usual {};
        usual.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &usual, &child_before_);
    }
    ~SignalsWait() { end(); }
    SignalsWait(const SignalsWait &) = delete;
    SignalsWait &operator=(const SignalsWait &) = delete;

    void end() const {
        sigaction(SIGCHLD, &child_before_, nullptr);
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }
    // Waits for the end of the child; interruption: the signal that came meanwhile, or 0.
    int status_of(pid_t child, int &interruption) const {
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0)
            if (const int signal = sigwaitinfo(&awaited_, nullptr); signal > 0 && signal != SIGCHLD) {
                interruption = signal;
                kill(child, signal);
            }
        return status;
    }

private:
    sigset_t awaited_{}, before_{};
    struct sigaction child_before_ {};
};

int run_in_child(const std::string &path, int stage, const std::function<int()> &work,
                 const Confinement &how) {
    const std::string root = fs::weakly_canonical(path);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail(base::tr("cannot start the work in {1}", root));
    const Descriptor answer(ends[0]);
    Descriptor told(ends[1]);
    const SignalsWait wait;
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        fail(base::tr("cannot start the work in {1}", root));
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(1);
        wait.end();
        work_confined(root, stage, work, how, told.get());
    }
    told = Descriptor();
    int interruption = 0;
    const int status = wait.status_of(child, interruption);
    Report report;
    if (read(answer.get(), &report, sizeof report) != sizeof report) {
        wait.end();
        if (interruption != 0)
            raise(interruption); // as if it had come to this process while it did the work itself
        // Some operations of the library end the process once they have recorded why.
        if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
            return WEXITSTATUS(status);
        throw std::runtime_error(base::tr("the work in {1} broke off", root));
    }
    if (!report.is_status)
        throw std::runtime_error(report.text);
    return report.status;
}

Descriptor memory_file_system() {
    const Descriptor context(fsopen("tmpfs", FSOPEN_CLOEXEC));
    if (!context.is_open() || fsconfig(context.get(), FSCONFIG_SET_STRING, "mode", "0755", 0) != 0 ||
        fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        fail(base::tr("cannot make a file system in memory"));
    Descriptor mount(fsmount(context.get(), FSMOUNT_CLOEXEC, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV));
    if (!mount.is_open())
        fail(base::tr("cannot make a file system in memory"));
    return mount;
}

Descriptor top_of(const Descriptor &mount) {
    Descriptor top(openat(mount.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!top.is_open())
        fail(base::tr("cannot open a file system in memory"));
    return top;
}

} // namespace

int run_confined(const std::string &root, const std::function<int()> &work, const Confinement &how) {
    return run_in_child(root, -1, work, how);
}

Stage::Stage(std::string root)
    : root_(std::move(root)), mount_(memory_file_system()), files_(top_of(mount_), root_) {}

int Stage::run(const std::function<int()> &work, const Confinement &how) const {
    return run_in_child(root_, mount_.get(), work, how);
}

} // namespace hostadm::server
