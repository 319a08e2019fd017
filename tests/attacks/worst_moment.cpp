// SPDX-License-Identifier: MIT
#include "worst_moment.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <set>
#include <stdexcept>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace attacks {

namespace {

// Which arguments of a system call are paths.
const std::map<unsigned long, std::vector<unsigned>> calls_with_paths = {
#ifdef SYS_open
    {SYS_open, {0}},         {SYS_creat, {0}},      {SYS_stat, {0}},      {SYS_lstat, {0}},
    {SYS_access, {0}},       {SYS_mkdir, {0}},      {SYS_rmdir, {0}},     {SYS_unlink, {0}},
    {SYS_rename, {0, 1}},    {SYS_link, {0, 1}},    {SYS_symlink, {1}},   {SYS_readlink, {0}},
    {SYS_chmod, {0}},        {SYS_chown, {0}},      {SYS_lchown, {0}},    {SYS_mknod, {0}},
#endif
    {SYS_chdir, {0}},        {SYS_truncate, {0}},   {SYS_execve, {0}},    {SYS_openat, {1}},
    {SYS_openat2, {1}},      {SYS_newfstatat, {1}}, {SYS_statx, {1}},     {SYS_faccessat, {1}},
    {SYS_faccessat2, {1}},   {SYS_mkdirat, {1}},    {SYS_unlinkat, {1}},  {SYS_renameat, {1, 3}},
    {SYS_renameat2, {1, 3}}, {SYS_linkat, {1, 3}},  {SYS_symlinkat, {2}}, {SYS_readlinkat, {1}},
    {SYS_fchmodat, {1}},     {SYS_fchownat, {1}},   {SYS_mknodat, {1}},   {SYS_utimensat, {1}},
};

std::string text_at(pid_t process, unsigned long address) {
    std::string text;
    std::array<char, 256> piece{};
    while (address != 0 && text.size() < 4096) {
        // Not over the end of a page, behind which there may be none.
        const std::size_t size = std::min(piece.size(), 4096 - (address & 4095));
        iovec here{piece.data(), size}, there{reinterpret_cast<void *>(address), size};
        const ssize_t got = process_vm_readv(process, &here, 1, &there, 1, 0);
        if (got <= 0)
            break;
        const std::string read(piece.data(), static_cast<std::size_t>(got));
        const std::size_t end = read.find('\0');
        text += read.substr(0, end);
        if (end != read.npos)
            break;
        address += static_cast<unsigned long>(got);
    }
    return text;
}

// The path that the call which the process is about to make names, if it holds one of the needles.
std::string named(pid_t process, const std::vector<std::string> &needles) {
    __ptrace_syscall_info info{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info) <= 0 ||
        info.op != PTRACE_SYSCALL_INFO_ENTRY)
        return "";
    const auto call = calls_with_paths.find(info.entry.nr);
    if (call == calls_with_paths.end())
        return "";
    for (const unsigned argument : call->second) {
        const std::string path = text_at(process, info.entry.args[argument]);
        for (const std::string &needle : needles)
            if (path.find(needle) != path.npos)
                return std::to_string(info.entry.nr) + " " + path;
    }
    return "";
}

pid_t start(const std::vector<std::string> &command) {
    std::vector<char *> words;
    for (const std::string &word : command)
        words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("cannot start a process");
    if (child == 0) {
        const int nowhere = open("/dev/null", O_RDWR);
        for (int descriptor = 0; descriptor <= 2; ++descriptor)
            dup2(nowhere, descriptor);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        execv(words[0], words.data());
        _exit(127);
    }
    return child;
}

} // namespace

Stopped run_and_swap(const std::vector<std::string> &command, const std::vector<std::string> &needles,
                     int number, const std::function<void()> &swap) {
    Stopped stopped;
    const pid_t first = start(command);
    int status = 0;
    if (waitpid(first, &status, 0) != first || !WIFSTOPPED(status))
        throw std::runtime_error("cannot trace a process here");
    constexpr unsigned long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                                      PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    ptrace(PTRACE_SETOPTIONS, first, nullptr, options);
    ptrace(PTRACE_SYSCALL, first, nullptr, nullptr);
    std::set<pid_t> known{first};
    int count = 0;
    for (;;) {
        const pid_t process = waitpid(-1, &status, __WALL);
        if (process < 0 && errno == EINTR)
            continue;
        if (process < 0)
            return stopped;
        if (!WIFSTOPPED(status)) {
            if (process == first) {
                stopped.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                return stopped;
            }
            continue;
        }
        int signal = WSTOPSIG(status);
        if (signal == (SIGTRAP | 0x80)) {
            signal = 0;
            if (!stopped.was_there)
                if (const std::string call = named(process, needles); !call.empty() && ++count == number) {
                    stopped.was_there = true;
                    stopped.call = call;
                    swap();
                }
        } else if (status >> 16 != 0 || (signal == SIGSTOP && known.insert(process).second)) {
            signal = 0; // a new process, or a new program
        }
        // Once done, let it run at its own speed.
        ptrace(stopped.was_there ? PTRACE_DETACH : PTRACE_SYSCALL, process, nullptr,
               static_cast<long>(signal));
    }
}

} // namespace attacks
