// SPDX-License-Identifier: MIT
// Whether a server daemon runs, and starting one.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/close_range.h>
#include <string>
#include <string_view>
#include <unistd.h>

#include "base/boundary.hpp"
#include "base/descriptor.hpp"
#include "base/owners.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "src/support/text.hpp"

namespace {

using namespace hostadm;

constexpr char processes_path[] = "/proc";
constexpr int cannot_start = -1;

template <std::size_t Size> std::string_view bounded(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

// The record behind one entry of the process directory. Every entry is asked: those that are no process, or one that
// has gone, have none.
bool read_process(const char *entry, struct sysv_psinfo &info) {
    const std::string path = std::string(processes_path) + "/" + entry;
    const base::Descriptor process(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return process.is_open() && sysv_psinfo(process.get(), &info) == 0;
}

// Looks for processes that match: the first live one decides, defunct ones only when there is none. The id of
// the last match looked at goes to pid, if wanted.
template <typename Matches> int find_process(int *pid, Matches matches) {
    const base::Directory processes(opendir(processes_path));
    if (!processes)
        return HOSTADM_DAEMON_NO_PROCFS;
    bool found_defunct = false;
    while (const dirent *entry = readdir(processes.get())) {
        struct sysv_psinfo info {};
        if (!read_process(entry->d_name, info) || !matches(info))
            continue;
        if (pid != nullptr)
            *pid = info.pr_pid;
        if (info.pr_zomb == 0)
            return HOSTADM_DAEMON_RUNNING;
        found_defunct = true;
    }
    return found_defunct ? HOSTADM_DAEMON_DEFUNCT : HOSTADM_DAEMON_NOT_RUNNING;
}

// Cuts a new child loose from whoever asked for it: their terminal, their pipes (a reader would wait for as
// long as the daemon lives) and every descriptor that they forgot to mark.
void detach() {
    setsid();
    const int null =
        open("/dev/null", O_RDWR); // NOLINT(android-cloexec-open): inherited, if it is one of these
    for (int standard = STDIN_FILENO; null >= 0 && standard <= STDERR_FILENO; ++standard)
        dup2(null, standard);
    if (close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) != 0)
        closefrom(STDERR_FILENO + 1);
}

// The child's side of start_daemon. The command is made before the fork: here, only what is safe after one.
[[noreturn]] void become_daemon(const char *path, const char *args, const char *command) {
    detach();
    // These two serve every interface, whatever the caller asked for.
    if (std::strstr(path, "in.rarpd") != nullptr || std::strstr(path, "rpld") != nullptr) {
        execl(path, path, "-a", nullptr);
    } else if (args == nullptr) {
        execl(path, path, nullptr);
    } else {
        [[maybe_unused]] const int status = system(command);
        _exit(EXIT_SUCCESS);
    }
    _exit(EXIT_FAILURE);
}

} // namespace

int check_daemon(const char *name, int *pid) {
    return base::at_boundary(int{HOSTADM_DAEMON_NO_PROCFS}, [&]() -> int {
        if (name == nullptr)
            return HOSTADM_DAEMON_NOT_RUNNING;
        // Anywhere in the arguments, deliberately: an editor open on /tmp/nfsd counts as nfsd, and an nfsd
        // started by its bare name does not.
        const std::string pattern = std::string("/") + name;
        return find_process(
            pid, [&](const struct sysv_psinfo &info) { return contains(bounded(info.pr_psargs), pattern); });
    });
}

int check_rarpd(const char *interface) {
    return base::at_boundary(int{HOSTADM_DAEMON_NO_PROCFS}, [&]() -> int {
        return find_process(nullptr, [&](const struct sysv_psinfo &info) {
            const std::string_view arguments = bounded(info.pr_psargs);
            return bounded(info.pr_fname) == "in.rarpd" &&
                   (contains(arguments, "-a") || (interface != nullptr && contains(arguments, interface)));
        });
    });
}

int start_daemon(const char *path, const char *args) {
    return base::at_boundary(cannot_start, [&] {
        if (path == nullptr)
            return cannot_start;
        const std::string command = args == nullptr ? "" : format("%s %s &", path, args);
        const pid_t child = fork();
        if (child == 0)
            become_daemon(path, args, command.c_str());
        return child < 0 ? cannot_start : 0;
    });
}
