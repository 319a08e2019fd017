// SPDX-License-Identifier: MIT
#include "base/program.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/environment.hpp"
#include "base/translation.hpp"

namespace hostadm::base {

namespace {

// What posix_spawn is to do in the child.
class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions &) = delete;
    SpawnActions &operator=(const SpawnActions &) = delete;
    posix_spawn_file_actions_t *get() { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

// A child begins with no signal blocked or ignored, whatever its parent has set up.
class FreshSignals {
public:
    explicit FreshSignals(bool own_group) {
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        const int group = own_group ? POSIX_SPAWN_SETPGROUP : 0;
        posix_spawnattr_setflags(&attributes_,
                                 static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | group));
    }
    ~FreshSignals() { posix_spawnattr_destroy(&attributes_); }
    FreshSignals(const FreshSignals &) = delete;
    FreshSignals &operator=(const FreshSignals &) = delete;
    const posix_spawnattr_t *get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

// While it lives a child's end is kept for waitpid, even where the caller ignores SIGCHLD.
class WaitableChildren {
public:
    WaitableChildren() {
        sigaction(SIGCHLD, nullptr, &saved_);
        changed_ = (saved_.sa_flags & SA_SIGINFO) == 0 &&
                   (saved_.sa_handler == SIG_IGN || (saved_.sa_flags & SA_NOCLDWAIT) != 0);
        if (changed_) {
            struct sigaction plain {};
            plain.sa_handler = SIG_DFL;
            sigaction(SIGCHLD, &plain, nullptr);
        }
    }
    ~WaitableChildren() {
        if (changed_)
            sigaction(SIGCHLD, &saved_, nullptr);
    }
    WaitableChildren(const WaitableChildren &) = delete;
    WaitableChildren &operator=(const WaitableChildren &) = delete;

private:
    struct sigaction saved_ {};
    bool changed_ = false;
};

constexpr std::string_view path_variable = "PATH=";

std::vector<std::string> own_environment() {
    std::vector<std::string> variables;
    for (char **variable = environ; variable != nullptr && *variable != nullptr; ++variable)
        variables.emplace_back(*variable);
    return variables;
}

std::vector<std::string> with_path_prefix(std::vector<std::string> variables, const std::string &prefix) {
    const auto path = std::find_if(variables.begin(), variables.end(), [](const std::string &variable) {
        return variable.starts_with(path_variable);
    });
    if (path != variables.end())
        path->insert(path_variable.size(), prefix + ":");
    else
        variables.push_back(std::string(path_variable) + prefix + ":" + system_path);
    return variables;
}

// A stream of the child that is kept, and our end of it.
struct Listened {
    Descriptor reader;
    std::string *text = nullptr;
    std::size_t limit = 0;

    // Reads what is there. False at the end.
    bool hear() {
        char piece[65536];
        for (;;) {
            const ssize_t got = read(reader.get(), piece, sizeof piece);
            if (got == -1 && errno == EINTR)
                continue;
            if (got <= 0)
                return got == -1 && errno == EAGAIN;
            text->append(piece, std::min(static_cast<std::size_t>(got), limit - text->size()));
        }
    }
};

// While it lives this process has the file mode mask and the limits that a program is to begin with: a child
// takes them over.
class FreshStart {
public:
    explicit FreshStart(bool wanted) : wanted_(wanted) {
        if (!wanted_)
            return;
        mask_ = umask(022);
        for (std::size_t at = 0; at < limited.size(); ++at) {
            getrlimit(limited[at], &limits_[at]);
            rlimit widest = limits_[at];
            widest.rlim_cur = widest.rlim_max;
            rlimit none{RLIM_INFINITY, RLIM_INFINITY};
            // Only a privileged process may go beyond what it was allowed at most.
            if (!is_same(limits_[at], none) && prlimit(0, limited[at], &none, nullptr) != 0)
                prlimit(0, limited[at], &widest, nullptr);
        }
    }
    ~FreshStart() {
        if (!wanted_)
            return;
        umask(mask_);
        for (std::size_t at = 0; at < limited.size(); ++at)
            prlimit(0, limited[at], &limits_[at], nullptr);
    }
    FreshStart(const FreshStart &) = delete;
    FreshStart &operator=(const FreshStart &) = delete;

private:
    // Those that would end a program in the middle of a table.
    static constexpr std::array<__rlimit_resource, 2> limited{RLIMIT_FSIZE, RLIMIT_CPU};

    static bool is_same(const rlimit &one, const rlimit &other) {
        return one.rlim_cur == other.rlim_cur && one.rlim_max == other.rlim_max;
    }

    bool wanted_;
    mode_t mask_ = 0;
    std::array<rlimit, limited.size()> limits_{};
};

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

std::vector<char *> pointers(std::vector<std::string> &words) {
    std::vector<char *> list;
    for (std::string &word : words)
        list.push_back(word.data());
    list.push_back(nullptr);
    return list;
}

// Descriptors out of the way of those that the child is to have.
constexpr int beyond_the_childs = 16;

// Where run() finds the signals to pass on, and the stream whose reader may go; -1: nobody asked for that.
int signals_to_pass_on = -1;
int stream_to_watch = -1;

// The child has not been waited for yet, so that its number is nobody else's.
// What it sent to its process group itself it has had.
void pass_on_signals(pid_t child) {
    signalfd_siginfo signal;
    while (read(signals_to_pass_on, &signal, sizeof signal) == sizeof signal)
        if (signal.ssi_pid != static_cast<std::uint32_t>(child))
            kill(child, static_cast<int>(signal.ssi_signo));
}

// Waits until the child has ended or the time is up, and listens meanwhile. True: it goes on.
bool outlives(pid_t child, int seconds, std::vector<Listened> &streams) {
    using Clock = std::chrono::steady_clock;
    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    if (!process.is_open())
        return false;
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    std::vector<pollfd> waiting = {
        {process.get(), POLLIN, 0}, {signals_to_pass_on, POLLIN, 0}, {stream_to_watch, 0, 0}};
    const std::size_t first_stream = waiting.size();
    for (const Listened &stream : streams)
        waiting.push_back({stream.reader.get(), POLLIN, 0});
    while (waiting[0].revents == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (seconds > 0 && left <= 0)
            return true;
        const int ready = poll(waiting.data(), waiting.size(), seconds > 0 ? static_cast<int>(left) : -1);
        if (ready == -1 && errno != EINTR)
            return false;
        if (ready <= 0)
            continue;
        if (waiting[0].revents == 0 && waiting[1].revents != 0)
            pass_on_signals(child);
        if (waiting[0].revents == 0 && waiting[2].revents != 0) {
            kill(child, SIGHUP);
            waiting[2].fd = -1; // it is told once
        }
        for (std::size_t i = 0; i < streams.size(); ++i)
            if (waiting[first_stream + i].revents != 0 && !streams[i].hear())
                waiting[first_stream + i].fd = -1;
    }
    return false;
}

Ending wait_for(pid_t child, int time_limit, std::vector<Listened> &streams) {
    Ending ending;
    if ((time_limit > 0 || signals_to_pass_on != -1 || !streams.empty()) &&
        outlives(child, time_limit, streams)) {
        // A shell that is killed alone leaves what it waits for running.
        kill(time_limit > 0 ? -child : child, SIGKILL);
        ending.timed_out = true;
    }
    int status = 0;
    pid_t waited = -1;
    do
        waited = waitpid(child, &status, 0);
    while (waited == -1 && errno == EINTR);
    if (waited == -1)
        ending.start_error = errno;
    else if (WIFSIGNALED(status))
        ending.signal = WTERMSIG(status);
    else
        ending.exit_status = WEXITSTATUS(status);
    for (Listened &stream : streams)
        stream.hear();
    return ending;
}

// A file of memory that holds the text and stands at its beginning.
Descriptor memory_file(std::string_view text) {
    Descriptor file(memfd_create("hostadm-input", MFD_CLOEXEC));
    if (file && (!write_all(file.get(), text) || lseek(file.get(), 0, SEEK_SET) != 0))
        file.reset();
    return file;
}

Ending run_listening(const Program &program, std::vector<Listened> &streams) {
    SpawnActions actions;
    std::vector<Descriptor> moved;
    int last = STDERR_FILENO;
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (program.input) {
        const Descriptor file = memory_file(*program.input);
        const Descriptor &away = moved.emplace_back(fcntl(file.get(), F_DUPFD_CLOEXEC, beyond_the_childs));
        if (!away)
            return {.start_error = errno};
        posix_spawn_file_actions_adddup2(actions.get(), away.get(), STDIN_FILENO);
    }
    for (const int standard : {STDOUT_FILENO, STDERR_FILENO})
        if (program.fresh_start && !is_open(standard))
            posix_spawn_file_actions_addopen(actions.get(), standard, "/dev/null", O_RDWR, 0);
    for (const auto &[childs, ours] : program.descriptors) {
        if (program.fresh_start && ours == STDERR_FILENO && !is_open(ours)) {
            posix_spawn_file_actions_addopen(actions.get(), childs, "/dev/null", O_RDWR, 0);
            continue;
        }
        const Descriptor &away = moved.emplace_back(fcntl(ours, F_DUPFD_CLOEXEC, beyond_the_childs));
        if (!away.is_open())
            return {.start_error = errno};
        posix_spawn_file_actions_adddup2(actions.get(), away.get(), childs);
        last = std::max(last, childs);
    }
    posix_spawn_file_actions_addclosefrom_np(actions.get(), last + 1);
    if (!program.directory.empty())
        posix_spawn_file_actions_addchdir_np(actions.get(), program.directory.c_str());

    std::vector<std::string> words = program.words;
    std::vector<char *> word_list = pointers(words);
    std::vector<std::string> variables;
    std::vector<char *> variable_list;
    if (program.environment || !program.path_prefix.empty()) {
        variables = program.environment ? *program.environment : own_environment();
        if (!program.path_prefix.empty())
            variables = with_path_prefix(std::move(variables), program.path_prefix);
        variable_list = pointers(variables);
    }
    char **const child_environment = variable_list.empty() ? environ : variable_list.data();

    const WaitableChildren waitable;
    const FreshSignals signals(program.time_limit > 0);
    pid_t child = -1;
    const auto spawn = program.search ? posix_spawnp : posix_spawn;
    const int error = [&] {
        const FreshStart start(program.fresh_start);
        return spawn(&child, words.front().c_str(), actions.get(), signals.get(), word_list.data(),
                     child_environment);
    }();
    if (error != 0)
        return {.start_error = error};
    if (program.size_limit > 0) {
        const rlimit limit{program.size_limit, program.size_limit};
        prlimit(child, RLIMIT_FSIZE, &limit, nullptr);
    }
    return wait_for(child, program.time_limit, streams);
}

} // namespace

Ending run(const Program &program) {
    std::vector<Listened> none;
    return run_listening(program, none);
}

Answer run_and_listen(Program program, Errors errors, std::size_t limit) {
    Answer answer;
    std::vector<Listened> streams;
    std::vector<Descriptor> writers;
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
        if (stream == STDERR_FILENO && errors == Errors::with_output) {
            program.descriptors.emplace_back(stream, writers.front().get());
            continue;
        }
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            answer.ending.start_error = errno;
            return answer;
        }
        std::string *text = stream == STDOUT_FILENO ? &answer.output : &answer.errors;
        streams.push_back({Descriptor(ends[0]), text, limit});
        fcntl(ends[0], F_SETFL, O_NONBLOCK); // ours alone: the child's end stays as programs expect it
        program.descriptors.emplace_back(stream, writers.emplace_back(ends[1]).get());
    }
    answer.ending = run_listening(program, streams);
    return answer;
}

SignalsPassedOn::SignalsPassedOn(int stream) {
    sigset_t passed_on;
    sigemptyset(&passed_on);
    sigprocmask(SIG_BLOCK, nullptr, &before_);
    for (const int signal : {SIGTERM, SIGHUP}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN && sigismember(&before_, signal) == 0)
            sigaddset(&passed_on, signal);
    }
    signals_ = Descriptor(signalfd(-1, &passed_on, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals_.is_open())
        return;
    sigprocmask(SIG_BLOCK, &passed_on, nullptr);
    signals_to_pass_on = signals_.get();
    stream_to_watch = stream;
}

SignalsPassedOn::~SignalsPassedOn() {
    signals_to_pass_on = stream_to_watch = -1;
    // What came too late for the program changes nothing any more: how it ended is still to be told.
    signalfd_siginfo late;
    while (signals_.is_open() && read(signals_.get(), &late, sizeof late) == sizeof late) {
    }
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

std::string in_words(const Ending &ending) {
    if (ending.start_error != 0)
        return base::tr("could not be started: {1}", std::strerror(ending.start_error));
    if (ending.timed_out)
        return base::tr("did not end in time and was killed");
    if (ending.signal != 0)
        return base::tr("was killed by signal {1} ({2})", ending.signal, strsignal(ending.signal));
    return base::tr("ended with exit status {1}", ending.exit_status);
}

} // namespace hostadm::base
