// SPDX-License-Identifier: MIT
#include "tables/lock.hpp"

#include <csignal>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>

#include "base/folder_lock.hpp"
#include "hostadm/table_edit.hpp"
#include "tables/failure.hpp"

namespace hostadm::tables {

namespace {

bool try_lock(int folder) {
    for (;;) {
        if (flock(folder, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno == EWOULDBLOCK)
            return false;
        if (errno != EINTR)
            throw Failure{errno == EBADF ? -ENOLCK : -errno}; // EBADF: a network file system
    }
}

// Stands in line for the lock and ends with 0 once it has it;
// SIGALRM ends it at the deadline. Only what is safe between fork and exec.
[[noreturn]] void wait_in_line(int folder, std::chrono::microseconds patience) {
    constexpr int microseconds = 1'000'000;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Any other descriptor kept open here could hold something up: a pipe's end, or the very lock when a
    // thread of this process has it.
    const auto number = static_cast<unsigned>(folder);
    if (number > 0)
        close_range(0, number - 1, 0);
    close_range(number + 1, ~0U, 0);
    std::signal(SIGALRM, SIG_DFL);
    const itimerval timer{{0, 10'000},
                          {static_cast<time_t>(patience.count() / microseconds),
                           static_cast<suseconds_t>(patience.count() % microseconds)}};
    setitimer(ITIMER_REAL, &timer, nullptr);
    sigset_t alarm_only;
    sigfillset(&alarm_only);
    sigdelset(&alarm_only, SIGALRM);
    sigprocmask(SIG_SETMASK, &alarm_only, nullptr);
    int status;
    do
        status = flock(folder, LOCK_EX);
    while (status != 0 && errno == EINTR);
    _exit(status == 0 ? 0 : 1);
}

// Asking again and again would be unfair to those who wait long, and a blocking call
// cannot be bounded without touching the caller's alarm and signal handlers. So a child
// stands in line: the lock belongs to the open folder, which parent and child share.
// The child sends no signal when it ends and is invisible to the caller's wait().
void stand_in_line(int folder, Clock::time_point deadline) {
    if (try_lock(folder))
        return;
    const auto patience = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    if (patience.count() <= 0)
        throw Failure{table_locked};

    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before); // no handler of the caller's may run in the child
    const auto child = static_cast<pid_t>(syscall(SYS_clone, 0UL, nullptr, nullptr, nullptr, 0UL));
    if (child == 0)
        wait_in_line(folder, patience);
    const int clone_error = errno;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (child < 0)
        throw Failure{-clone_error};

    int outcome = 0;
    complete([&] { return waitpid(child, &outcome, __WCLONE); });
    if (WIFSIGNALED(outcome) && WTERMSIG(outcome) == SIGALRM)
        throw Failure{table_locked};
    if (!WIFEXITED(outcome) || WEXITSTATUS(outcome) != 0)
        throw Failure{-ENOLCK};
}

} // namespace

base::Descriptor lock(int folder, Clock::time_point deadline) {
    base::Descriptor held = base::lock_file_of(folder, "tables");
    if (!held.is_open())
        throw Failure{-errno};
    stand_in_line(held.get(), deadline);
    return held;
}

} // namespace hostadm::tables
