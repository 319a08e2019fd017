// SPDX-License-Identifier: MIT
#include "server/undo.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace hostadm::server {

namespace {

[[noreturn]] void throw_errno(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

constexpr int interruptions[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr timespec grace{5, 0}; // for commands that clean up after themselves

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return parts;
}

[[noreturn]] void become_worker(const sigset_t &signals, const std::function<int()> &work) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGTTOU, SIG_IGN); // progress is written from behind the terminal's foreground group
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    const int status = work();
    std::fflush(nullptr);
    _exit(status == 0 ? 0 : 1);
}

std::string name_of(int signal) {
    const char *name = sigabbrev_np(signal);
    return name == nullptr ? "signal " + std::to_string(signal) : std::string("SIG") + name;
}

// Commands that the worker leaves behind must be gone before anything is taken back. They have become
// children of this process by now.
void end_group(pid_t group) {
    kill(-group, SIGKILL);
    while (waitpid(-group, nullptr, 0) > 0 || errno == EINTR) {
    }
}

} // namespace

Journal::Journal() : descriptor_(memfd_create("journal", MFD_CLOEXEC)) {
    if (descriptor_ < 0)
        throw_errno("cannot keep a journal");
}

Journal::~Journal() {
    close(descriptor_);
}

void Journal::note(const std::vector<std::string> &words) {
    std::string line;
    for (const std::string &word : words)
        line += (line.empty() ? "" : "\t") + word;
    line += '\n';
    // The offset is shared with the process that reads.
    if (write(descriptor_, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        throw_errno("cannot keep a journal");
}

std::vector<std::vector<std::string>> Journal::entries() const {
    std::string text;
    char buffer[4096];
    for (ssize_t size;
         (size = pread(descriptor_, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
        text.append(buffer, static_cast<std::size_t>(size));
    std::vector<std::vector<std::string>> entries;
    for (const std::string &line : split(text, '\n'))
        entries.push_back(split(line, '\t'));
    return entries;
}

Ending run_apart(const std::function<int()> &work) {
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int signal : interruptions)
        sigaddset(&awaited, signal);
    sigaddset(&awaited, SIGCHLD);
    std::signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    prctl(PR_SET_CHILD_SUBREAPER, 1);

    std::fflush(nullptr);
    const pid_t worker = fork();
    if (worker < 0)
        return {.done = false, .reason = std::string("cannot start a process: ") + std::strerror(errno)};
    if (worker == 0)
        become_worker(awaited, work);
    setpgid(worker, worker);

    int interruption = 0, status = 0;
    while (waitpid(worker, &status, WNOHANG) == 0) {
        const int signal =
            interruption == 0 ? sigwaitinfo(&awaited, nullptr) : sigtimedwait(&awaited, nullptr, &grace);
        if (signal == SIGCHLD || (signal < 0 && errno == EINTR))
            continue;
        kill(-worker, interruption == 0 ? SIGTERM : SIGKILL);
        if (signal > 0)
            interruption = signal;
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {.done = true};
    end_group(worker);
    if (interruption != 0)
        return {.done = false, .reason = "interrupted (" + name_of(interruption) + ")"};
    if (WIFSIGNALED(status))
        return {.done = false, .reason = "ended by " + name_of(WTERMSIG(status))};
    return {};
}

void take_back(method::Call &call, const Journal &journal,
               const std::function<std::string(const std::vector<std::string> &)> &undo) {
    const auto entries = journal.entries();
    if (entries.empty())
        return;
    call.progress("taking back what was done");
    bool whole = true;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        const std::string left = undo(*entry);
        if (left.empty())
            continue;
        call.left_undone("could not be taken back: " + left);
        whole = false;
    }
    if (whole)
        std::fprintf(stderr, "%s: everything that was done for %s has been taken back\n",
                     call.method().c_str(), call.get("hostname").c_str());
}

} // namespace hostadm::server
