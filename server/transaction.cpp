// SPDX-License-Identifier: MIT
#include "server/transaction.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "base/translation.hpp"
#include "server/failure.hpp"
#include "server/page.hpp"

namespace hostadm::server {

namespace {

constexpr timespec grace{5, 0}; // for commands that clean up after themselves

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
    return name == nullptr ? base::tr("signal {1}", signal) : std::string("SIG") + name;
}

// Commands that the worker leaves behind must be gone before anything is taken back. They have become
// children of this process by now.
void end_group(pid_t group) {
    kill(-group, SIGKILL);
    while (waitpid(-group, nullptr, 0) > 0 || errno == EINTR) {
    }
}

template <std::size_t... Index>
std::optional<Entry> read_as_one_of(const Written &words, std::index_sequence<Index...>) {
    std::optional<Entry> found;
    const auto try_kind = [&]<typename Kind>(std::type_identity<Kind>) {
        if (auto entry = read_entry<Kind>(words))
            found = std::move(*entry);
    };
    (try_kind(std::type_identity<std::variant_alternative_t<Index, Entry>>{}), ...);
    return found;
}

} // namespace

const sigset_t &interruptions() {
    static const sigset_t all = [] {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            sigaddset(&set, signal);
        return set;
    }();
    return all;
}

std::optional<Entry> read_any_entry(const Written &words) {
    return read_as_one_of(words, std::make_index_sequence<std::variant_size_v<Entry>>());
}

std::string take_back(const Written &words, const UndoContext &context) try {
    const std::optional<Entry> entry = read_any_entry(words);
    if (!entry)
        return words.empty() ? base::tr("a step that this version does not know ()")
                             : base::tr("a step that this version does not know ({1})", words.front());
    return std::visit([&](const auto &known) { return take_back(known, context); }, *entry);
} catch (const std::exception &failure) {
    return failure.what();
}

std::string take_back(const Touched &touched, const UndoContext &context) {
    const auto known =
        std::find_if(context.state.begin(), context.state.end(),
                     [&](const Remembered &remembered) { return remembered.path() == touched.path; });
    return known == context.state.end() ? base::tr("what stood at {1} is not known", touched.path)
                                        : known->put_back();
}

Ending run_apart(const std::function<int()> &work) {
    sigset_t awaited = interruptions();
    sigaddset(&awaited, SIGCHLD);
    std::signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    prctl(PR_SET_CHILD_SUBREAPER, 1);

    std::fflush(nullptr);
    const pid_t worker = fork();
    if (worker < 0)
        return {.done = false, .reason = base::tr("cannot start a process: {1}", std::strerror(errno))};
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
        return {.done = false, .reason = base::tr("interrupted ({1})", name_of(interruption))};
    if (WIFSIGNALED(status))
        return {.done = false, .reason = base::tr("ended by {1}", name_of(WTERMSIG(status)))};
    return {};
}

Transaction::Transaction(method::Call &call, std::string subject, std::vector<Remembered> state)
    : call_(call), subject_(std::move(subject)), context_{call.method(), std::move(state)} {}

Transaction::Transaction(method::Call &call, std::string subject, const Kept &kept)
    : call_(call), subject_(std::move(subject)), context_{call.method(), {}},
      file_(std::in_place, kept.method, subject_),
      journal_(file_->descriptor(), Journal::Lasts::beyond_the_machine) {}

bool Transaction::run(const std::function<int()> &work) {
    const Ending ending = run_apart([&] { return guarded(call_, work); });
    if (!ending.reason.empty())
        call_.fail(ending.reason, static_cast<int>(Code::interrupted));
    return ending.done;
}

int Transaction::run_whole(const std::function<int()> &work) {
    const bool done = run(work);
    if (!done)
        take_back();
    if (file_)
        file_->forget();
    return done ? 0 : 1;
}

void Transaction::take_back() {
    const std::vector<Written> entries = journal_.entries();
    if (entries.empty())
        return;
    call_.progress(base::tr("taking back what was done"));
    if (take_back_entries(call_, entries, context_))
        std::fprintf(stderr, "%s: %s\n", call_.method().c_str(),
                     base::tr("everything that was done for {1} has been taken back", subject_).c_str());
}

bool take_back_entries(method::Call &call, const std::vector<Written> &entries, const UndoContext &context) {
    bool whole = true;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        const std::string left = take_back(*entry, context);
        if (left.empty())
            continue;
        call.left_undone(base::tr("could not be taken back: {1}", left));
        whole = false;
    }
    return whole;
}

} // namespace hostadm::server
