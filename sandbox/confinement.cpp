// SPDX-License-Identifier: MIT
#include "sandbox/confinement.hpp"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/translation.hpp"
#include "sandbox/device_nodes.hpp"
#include "sandbox/tree.hpp"

namespace hostadm::sandbox {

namespace {

using base::Descriptor;

// Everybody is in the new user name space who he was outside. Returns an errno value.
int map_everybody(const Descriptor &processes, pid_t process) {
    for (const char *map : {"/uid_map", "/gid_map"}) {
        const Descriptor file(
            openat(processes.get(), (std::to_string(process) + map).c_str(), O_WRONLY | O_CLOEXEC));
        if (!file.is_open() || !base::write_all(file.get(), "0 0 4294967295\n"))
            return errno;
    }
    return 0;
}

// Root's rights from now on are those over its own name spaces. They came from outside, so that the mounts
// that are there cannot be taken down or made writable.
void give_up_the_systems_rights() {
    const Descriptor processes = own_processes();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail(base::tr("make a channel"));
    const Descriptor reader(ends[0]);
    Descriptor writer(ends[1]);
    const pid_t process = getpid(), helper = fork();
    if (helper < 0)
        fail(base::tr("start a process"));
    if (helper == 0) {
        // Only who still has the system's rights may say who is who.
        writer.reset();
        char ready = 0;
        _exit(read(reader.get(), &ready, 1) == 1 ? map_everybody(processes, process) : 0);
    }
    const int error = unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 ? 0 : errno;
    if (error == 0)
        base::write_all(writer.get(), "x");
    writer.reset();
    int status = 0;
    while (waitpid(helper, &status, 0) < 0 && errno == EINTR) {
    }
    errno = error != 0 ? error : WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
    if (errno != 0)
        fail(base::tr("make a user name space (see the setting user.max_user_namespaces)"));
}

// Calls that reach other name spaces, other processes, the kernel or the clock. Most of them would fail for
// want of a right; two reasons are better than one.
constexpr std::array refused_calls = {SCMP_SYS(setns),
                                      SCMP_SYS(open_by_handle_at),
                                      SCMP_SYS(ptrace),
                                      SCMP_SYS(process_vm_readv),
                                      SCMP_SYS(pidfd_getfd),
                                      SCMP_SYS(process_vm_writev),
                                      SCMP_SYS(init_module),
                                      SCMP_SYS(finit_module),
                                      SCMP_SYS(delete_module),
                                      SCMP_SYS(kexec_load),
                                      SCMP_SYS(kexec_file_load),
                                      SCMP_SYS(reboot),
                                      SCMP_SYS(settimeofday),
                                      SCMP_SYS(clock_settime),
                                      SCMP_SYS(clock_adjtime),
                                      SCMP_SYS(adjtimex),
                                      SCMP_SYS(syslog),
                                      SCMP_SYS(swapon),
                                      SCMP_SYS(swapoff),
                                      SCMP_SYS(acct),
                                      SCMP_SYS(quotactl),
                                      SCMP_SYS(quotactl_fd),
                                      SCMP_SYS(iopl),
                                      SCMP_SYS(ioperm),
                                      SCMP_SYS(bpf),
                                      SCMP_SYS(perf_event_open),
                                      SCMP_SYS(userfaultfd),
                                      SCMP_SYS(keyctl),
                                      SCMP_SYS(add_key),
                                      SCMP_SYS(request_key),
                                      SCMP_SYS(io_uring_setup)};

struct Release {
    void operator()(void *filter) const { seccomp_release(filter); }
};

// A negative value is minus an errno, as the filter library returns it.
void require(int status) {
    if (status >= 0)
        return;
    errno = -status;
    fail(base::tr("refuse system calls"));
}

// Calls that make a device node wait for an answer from whoever listens there.
Descriptor refuse_calls() {
    const std::unique_ptr<void, Release> filter(seccomp_init(SCMP_ACT_ALLOW));
    if (!filter) {
        errno = ENOMEM;
        fail(base::tr("refuse system calls"));
    }
    // The same calls by the numbers of the other kinds of programs that this kernel runs.
    if (seccomp_arch_native() == SCMP_ARCH_X86_64)
        for (const std::uint32_t other : {SCMP_ARCH_X86, SCMP_ARCH_X32})
            require(seccomp_arch_add(filter.get(), other));
    for (const int call : refused_calls)
        if (const int status = seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 0);
            status != -EDOM) // there is no such call on this machine
            require(status);
    // What is put into the terminal's input is typed into the shell that started all this.
    for (const std::uint64_t request : {std::uint64_t{TIOCSTI}, std::uint64_t{TIOCLINUX}})
        require(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(ioctl), 1,
                                 SCMP_A1(SCMP_CMP_MASKED_EQ, 0xffffffff, request)));
    for (const std::uint64_t type : {std::uint64_t{S_IFCHR}, std::uint64_t{S_IFBLK}}) {
        require(seccomp_rule_add(filter.get(), SCMP_ACT_NOTIFY, SCMP_SYS(mknod), 1,
                                 SCMP_A1(SCMP_CMP_MASKED_EQ, S_IFMT, type)));
        require(seccomp_rule_add(filter.get(), SCMP_ACT_NOTIFY, SCMP_SYS(mknodat), 1,
                                 SCMP_A2(SCMP_CMP_MASKED_EQ, S_IFMT, type)));
    }
    require(seccomp_load(filter.get()));
    const int requests = seccomp_notify_fd(filter.get());
    require(requests);
    return Descriptor(requests);
}

} // namespace

Descriptor confine() {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        fail(base::tr("give up getting more rights"));
    give_up_the_systems_rights();
    return refuse_calls();
}

} // namespace hostadm::sandbox
