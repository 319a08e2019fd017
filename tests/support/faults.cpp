// SPDX-License-Identifier: MIT
#include "support/faults.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <optional>
#include <set>
#include <signal.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faults {

#ifdef __x86_64__

namespace {

enum class Subject { path, path_second, path_third, path_fourth, descriptor, opened, opened_at, closed };

struct Known {
    long number;
    const char *name;
    Subject subject; // the argument that tells which file it is about
};

constexpr Known known[] = {
    {SYS_open, "open", Subject::opened},
    {SYS_openat, "openat", Subject::opened_at},
    {SYS_creat, "creat", Subject::path},
    {SYS_write, "write", Subject::descriptor},
    {SYS_pwrite64, "pwrite64", Subject::descriptor},
    {SYS_writev, "writev", Subject::descriptor},
    {SYS_fsync, "fsync", Subject::descriptor},
    {SYS_fdatasync, "fdatasync", Subject::descriptor},
    {SYS_ftruncate, "ftruncate", Subject::descriptor},
    {SYS_fchmod, "fchmod", Subject::descriptor},
    {SYS_fchown, "fchown", Subject::descriptor},
    {SYS_flock, "flock", Subject::descriptor},
    {SYS_close, "close", Subject::closed},
    {SYS_rename, "rename", Subject::path_second},
    {SYS_renameat, "renameat", Subject::path_fourth},
    {SYS_renameat2, "renameat2", Subject::path_fourth},
    {SYS_link, "link", Subject::path_second},
    {SYS_linkat, "linkat", Subject::path_fourth},
    {SYS_symlink, "symlink", Subject::path_second},
    {SYS_symlinkat, "symlinkat", Subject::path_third},
    {SYS_mkdir, "mkdir", Subject::path},
    {SYS_mkdirat, "mkdirat", Subject::path_second},
    {SYS_unlink, "unlink", Subject::path},
    {SYS_unlinkat, "unlinkat", Subject::path_second},
    {SYS_rmdir, "rmdir", Subject::path},
    {SYS_chmod, "chmod", Subject::path},
    {SYS_fchmodat, "fchmodat", Subject::path_second},
    {SYS_chown, "chown", Subject::path},
    {SYS_lchown, "lchown", Subject::path},
    {SYS_fchownat, "fchownat", Subject::path_second},
    {SYS_copy_file_range, "copy_file_range", Subject::path},
};

// Makes each of these calls stop for the tracer, and nothing else.
void install_filter() {
    std::vector<sock_filter> filter = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offsetof(seccomp_data, nr)))};
    for (const Known &call : known) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call.number), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        _exit(126);
}

std::string text_at(pid_t process, unsigned long long address) {
    std::string text;
    while (text.size() < 4096) {
        std::array<char, 4096> piece;
        iovec here = {piece.data(),
                      piece.size() - (address + text.size()) % piece.size()}; // to the page's end
        iovec there = {reinterpret_cast<void *>(address + text.size()), here.iov_len};
        const ssize_t size = process_vm_readv(process, &here, 1, &there, 1, 0);
        if (size <= 0)
            break;
        const auto end = std::find(piece.begin(), piece.begin() + size, '\0');
        text.append(piece.begin(), end);
        if (end != piece.begin() + size)
            break;
    }
    return text;
}

std::string file_behind(pid_t process, unsigned long long descriptor) {
    std::error_code error;
    return std::filesystem::read_symlink(
        "/proc/" + std::to_string(process) + "/fd/" + std::to_string(static_cast<int>(descriptor)), error);
}

bool opened_for_writing(pid_t process, unsigned long long descriptor) {
    std::ifstream info("/proc/" + std::to_string(process) + "/fdinfo/" +
                       std::to_string(static_cast<int>(descriptor)));
    for (std::string word; info >> word;)
        if (int flags = 0; word == "flags:" && info >> std::oct >> flags)
            return (flags & O_ACCMODE) != O_RDONLY;
    return false;
}

// Devices, pipes, the programs' own libraries and the tests' own records are not what a job is about.
bool counts(const std::string &path) {
    if (path.empty() || path.find(":[") != path.npos)
        return false;
    for (const char *beside : {"/dev/", "/proc/", "/sys/", "/standin/", "/words"})
        if (path.starts_with(beside))
            return false;
    return true;
}

bool counts_for_reading(const std::string &path) {
    for (const char *area : {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs", "/export",
                             "/tftpboot", "/tree", "/client"})
        if (path.starts_with(area))
            return true;
    return false;
}

// What to call it when it is one of those that matter.
std::optional<std::string> call_of(pid_t process, const user_regs_struct &registers) {
    const auto *call = std::find_if(std::begin(known), std::end(known), [&](const Known &one) {
        return one.number == static_cast<long>(registers.orig_rax);
    });
    if (call == std::end(known))
        return std::nullopt;
    std::string path;
    bool matters = true;
    const auto open_matters = [&](unsigned long long flags) {
        matters = (flags & O_ACCMODE) != O_RDONLY || (flags & O_CREAT) != 0 || counts_for_reading(path);
    };
    switch (call->subject) {
    case Subject::path:
        path = text_at(process, registers.rdi);
        break;
    case Subject::path_second:
        path = text_at(process, registers.rsi);
        break;
    case Subject::path_third:
        path = text_at(process, registers.rdx);
        break;
    case Subject::path_fourth:
        path = text_at(process, registers.r10);
        break;
    case Subject::opened:
        path = text_at(process, registers.rdi);
        open_matters(registers.rsi);
        break;
    case Subject::opened_at:
        path = text_at(process, registers.rsi);
        open_matters(registers.rdx);
        break;
    case Subject::descriptor:
        path = file_behind(process, registers.rdi);
        break;
    case Subject::closed:
        path = file_behind(process, registers.rdi);
        matters = opened_for_writing(process, registers.rdi);
        break;
    }
    if (call->number == SYS_copy_file_range)
        path = file_behind(process, registers.rdx);
    const bool by_descriptor = call->subject == Subject::descriptor || call->subject == Subject::closed;
    if (!matters || !counts(path) || (by_descriptor && path.front() != '/'))
        return std::nullopt;
    return std::string(call->name) + " " + path;
}

class Tracer {
public:
    Tracer(const Fault &fault, const std::function<void(std::size_t)> &before)
        : fault_(fault), before_(before) {}

    Ran follow(pid_t job) {
        int status = 0;
        if (waitpid(job, &status, __WALL) != job || !WIFSTOPPED(status))
            throw std::runtime_error("cannot trace a process");
        ptrace(PTRACE_SETOPTIONS, job, nullptr,
               PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                   PTRACE_O_TRACEEXEC | PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        processes_.insert(job);
        ptrace(PTRACE_CONT, job, nullptr, nullptr);
        for (pid_t process; (process = waitpid(-1, &status, __WALL)) > 0;) {
            if (WIFSTOPPED(status)) {
                stopped(process, status);
                continue;
            }
            processes_.erase(process);
            if (process == job)
                ran_.status = status;
        }
        return std::move(ran_);
    }

private:
    void stopped(pid_t process, int status) {
        const bool is_new = processes_.insert(process).second;
        if (cut_) {
            kill(process, SIGKILL);
            return;
        }
        int signal = WSTOPSIG(status);
        const int event = status >> 16;
        if (event == PTRACE_EVENT_SECCOMP && !at_call(process))
            return;
        if (signal == (SIGTRAP | 0x80))
            set_result(process, -fault_.error, false);
        if (event != 0 || signal == (SIGTRAP | 0x80) || (is_new && signal == SIGSTOP))
            signal = 0;
        ptrace(PTRACE_CONT, process, nullptr, signal);
    }

    // False when the process has been told already how to go on.
    bool at_call(pid_t process) {
        user_regs_struct registers{};
        if (ptrace(PTRACE_GETREGS, process, nullptr, &registers) != 0)
            return true;
        const std::optional<std::string> call = call_of(process, registers);
        if (!call)
            return true;
        ran_.calls.push_back(*call);
        if (before_)
            before_(ran_.calls.size());
        if (fault_.at != static_cast<int>(ran_.calls.size()))
            return true;
        ran_.met = true;
        if (fault_.error == 0) {
            cut_ = true;
            for (const pid_t one : processes_)
                kill(one, SIGKILL);
            return false;
        }
        if (registers.orig_rax == SYS_close) { // closes all the same, and tells afterwards
            ptrace(PTRACE_SYSCALL, process, nullptr, nullptr);
            return false;
        }
        set_result(process, -fault_.error, true);
        return true;
    }

    static void set_result(pid_t process, long result, bool instead) {
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, process, nullptr, &registers);
        registers.rax = static_cast<unsigned long long>(result);
        if (instead)
            registers.orig_rax = static_cast<unsigned long long>(-1);
        ptrace(PTRACE_SETREGS, process, nullptr, &registers);
    }

    Fault fault_;
    const std::function<void(std::size_t)> &before_;
    Ran ran_;
    std::set<pid_t> processes_;
    bool cut_ = false;
};

} // namespace

bool available() {
    try {
        const std::string file = "/tmp/faults." + std::to_string(getpid());
        const Ran ran = run([&] { return creat(file.c_str(), 0600) < 0 ? 7 : 0; }, {1, EIO});
        unlink(file.c_str());
        return ran.met && WIFEXITED(ran.status) && WEXITSTATUS(ran.status) == 7;
    } catch (const std::runtime_error &) {
        return false;
    }
}

Ran run(const std::function<int()> &work, const Fault &fault,
        const std::function<void(std::size_t)> &before) {
    std::fflush(nullptr);
    const pid_t job = fork();
    if (job < 0)
        throw std::runtime_error("cannot start a process");
    if (job == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(126);
        raise(SIGSTOP);
        install_filter();
        _exit(work());
    }
    return Tracer(fault, before).follow(job);
}

#else // other machines keep a call's number and result elsewhere

bool available() {
    return false;
}
Ran run(const std::function<int()> &, const Fault &, const std::function<void(std::size_t)> &) {
    throw std::runtime_error("calls cannot be made to fail on this kind of machine");
}

#endif

} // namespace faults
