// SPDX-License-Identifier: MIT
#include "sandbox/device_nodes.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <optional>
#include <seccomp.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/translation.hpp"
#include "sandbox/tree.hpp"

namespace hostadm::sandbox {

namespace {

using base::Descriptor;

struct Wanted {
    pid_t process = 0;
    int directory = AT_FDCWD;
    std::string path;
    mode_t mode = 0;
    unsigned int device = 0; // as the kernel packs it
};

// A text in the memory of another process; nothing when it has none there.
std::optional<std::string> text_of(pid_t process, std::uint64_t address) {
    constexpr std::uint64_t page = 4096;
    std::string text;
    while (text.size() < PATH_MAX) {
        char piece[page];
        // Up to the end of its page: what lies behind that may not be its.
        const std::size_t size = page - address % page;
        iovec here{piece, size}, there{reinterpret_cast<void *>(address), size};
        const ssize_t got = process_vm_readv(process, &here, 1, &there, 1, 0);
        if (got <= 0)
            return std::nullopt;
        const std::size_t length = strnlen(piece, static_cast<std::size_t>(got));
        text.append(piece, length);
        if (length < static_cast<std::size_t>(got))
            return text;
        address += static_cast<std::uint64_t>(got);
    }
    return std::nullopt;
}

// Its effective user and its file mode mask.
struct Asker {
    unsigned int user = 1;
    unsigned int mask = 0777;
};

Asker asker_of(const Descriptor &processes, const std::string &process) {
    const Descriptor file(openat(processes.get(), (process + "/status").c_str(), O_RDONLY | O_CLOEXEC));
    const std::string status = base::read_stream(file.get()).value_or("");
    Asker asker;
    if (const std::size_t at = status.find("\nUid:"); at != status.npos)
        std::sscanf(status.c_str() + at, "\nUid: %*u %u", &asker.user);
    if (const std::size_t at = status.find("\nUmask:"); at != status.npos)
        std::sscanf(status.c_str() + at, "\nUmask: %o", &asker.mask);
    return asker;
}

// In a process of its own, which enters the root of the one that asks. Returns an errno value.
int make_as_asked(const Wanted &wanted) {
    const Descriptor processes = own_processes();
    const std::string process = std::to_string(wanted.process);
    const auto open_its = [&](const std::string &what) {
        return Descriptor(
            openat(processes.get(), (process + what).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    };
    const Asker asker = asker_of(processes, process);
    if (asker.user != 0)
        return EPERM;
    const Descriptor root = open_its("/root");
    const Descriptor start =
        open_its(wanted.directory == AT_FDCWD ? "/cwd" : "/fd/" + std::to_string(wanted.directory));
    if (!root.is_open() || fchdir(root.get()) != 0 || chroot(".") != 0)
        return errno;
    if (wanted.path.front() != '/' && (!start.is_open() || fchdir(start.get()) != 0))
        return errno;
    const std::size_t slash = wanted.path.rfind('/');
    const std::string parent = slash == wanted.path.npos ? "."
                               : slash == 0              ? "/"
                                                         : wanted.path.substr(0, slash);
    const std::string name = slash == wanted.path.npos ? wanted.path : wanted.path.substr(slash + 1);
    // The links of /proc would lead this process, which has the system's rights, to where the other may not
    // go.
    open_how how{};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_NO_MAGICLINKS;
    const Descriptor directory(
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, parent.c_str(), &how, sizeof how)));
    if (!directory.is_open())
        return errno;
    umask(asker.mask);
    return syscall(SYS_mknodat, directory.get(), name.c_str(), wanted.mode, wanted.device) == 0 ? 0 : errno;
}

int make_apart(const Wanted &wanted) {
    const pid_t helper = fork();
    if (helper < 0)
        return errno;
    if (helper == 0) {
        try {
            _exit(make_as_asked(wanted));
        } catch (const std::exception &) {
            _exit(EPERM);
        }
    }
    int status = 0;
    while (waitpid(helper, &status, 0) < 0)
        if (errno != EINTR)
            return errno;
    return WIFEXITED(status) ? WEXITSTATUS(status) : EPERM;
}

// 0 or an errno value.
int make(const seccomp_notif &request, int requests) {
    const auto &arguments = request.data.args;
    const char *call = seccomp_syscall_resolve_num_arch(request.data.arch, request.data.nr);
    const std::size_t first = call != nullptr && std::string_view(call) == "mknodat" ? 1 : 0;
    std::free(const_cast<char *>(call));
    Wanted wanted;
    wanted.process = static_cast<pid_t>(request.pid);
    if (first == 1)
        wanted.directory = static_cast<int>(arguments[0]);
    const auto path = text_of(wanted.process, arguments[first]);
    // Until here the process might have ended, and its number have become another's.
    if (seccomp_notify_id_valid(requests, request.id) != 0 || !path)
        return EFAULT;
    if (path->empty())
        return ENOENT;
    wanted.path = *path;
    wanted.mode = static_cast<mode_t>(arguments[first + 1]);
    wanted.device = static_cast<unsigned int>(arguments[first + 2]);
    return make_apart(wanted);
}

} // namespace

Descriptor own_processes() {
    const Descriptor context(fsopen("proc", FSOPEN_CLOEXEC));
    if (!context.is_open() || fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        fail(base::tr("look at the private processes"));
    Descriptor processes(fsmount(context.get(), FSMOUNT_CLOEXEC, 0));
    if (!processes.is_open())
        fail(base::tr("look at the private processes"));
    return processes;
}

void DeviceNodes::answer() const {
    seccomp_notif *request = nullptr;
    seccomp_notif_resp *response = nullptr;
    if (seccomp_notify_alloc(&request, &response) != 0)
        return;
    if (seccomp_notify_receive(requests_.get(), request) == 0) {
        response->id = request->id;
        response->error = -make(*request, requests_.get());
        seccomp_notify_respond(requests_.get(), response);
    }
    seccomp_notify_free(request, response);
}

} // namespace hostadm::sandbox
