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
#include <tuple>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/environment.hpp"
#include "base/translation.hpp"

namespace hostadm::base {

namespace {

using Clock = std::chrono::steady_clock;

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

// Hands on what a stream has ready. False at its end, and when the use has enough.
template <typename Use> bool read_ready(int reader, Use use) {
    char piece[65536];
    for (;;) {
        const ssize_t got = read(reader, piece, sizeof piece);
        if (got == -1 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == -1 && errno == EAGAIN;
        if (!use(std::string_view(piece, static_cast<std::size_t>(got))))
            return false;
    }
}

// A stream of the child that is kept, and our end of it.
struct Listened {
    Descriptor reader;
    std::string *text = nullptr;
    std::size_t limit = 0;

    // Reads what is there. False at the end.
    bool hear() {
        return read_ready(reader.get(), [this](std::string_view piece) {
            text->append(piece.substr(0, limit - text->size()));
            return true;
        });
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

// The next signal to pass on; nothing: there is none.
std::optional<signalfd_siginfo> take_signal() {
    signalfd_siginfo signal;
    if (signals_to_pass_on != -1 && read(signals_to_pass_on, &signal, sizeof signal) == sizeof signal)
        return signal;
    return std::nullopt;
}

// The child has not been waited for yet, so that its number is nobody else's.
// What it sent to its process group itself it has had.
void pass_on(const signalfd_siginfo &signal, pid_t child) {
    if (signal.ssi_pid != static_cast<std::uint32_t>(child))
        kill(child, static_cast<int>(signal.ssi_signo));
}

void pass_on_signals(pid_t child) {
    while (const auto signal = take_signal())
        pass_on(*signal, child);
}

// Waits until the child has ended or the time is up, and listens meanwhile. True: it goes on.
bool outlives(pid_t child, int seconds, std::vector<Listened> &streams) {
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

Ending ending_of(pid_t child) {
    Ending ending;
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
    return ending;
}

Ending wait_for(pid_t child, int time_limit, std::vector<Listened> &streams) {
    const bool is_late = (time_limit > 0 || signals_to_pass_on != -1 || !streams.empty()) &&
                         outlives(child, time_limit, streams);
    if (is_late) // a shell that is killed alone leaves what it waits for running
        kill(time_limit > 0 ? -child : child, SIGKILL);
    Ending ending = ending_of(child);
    ending.timed_out = is_late;
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

struct Spawned {
    int error = 0; // errno when it could not be started
    pid_t child = -1;
};

// The caller sees to it that the child can be waited for.
Spawned spawned(const Program &program) {
    SpawnActions actions;
    std::vector<Descriptor> moved;
    int last = STDERR_FILENO;
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (program.input) {
        const Descriptor file = memory_file(*program.input);
        const Descriptor &away = moved.emplace_back(fcntl(file.get(), F_DUPFD_CLOEXEC, beyond_the_childs));
        if (!away)
            return {.error = errno};
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
            return {.error = errno};
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

    const FreshSignals signals(program.time_limit > 0);
    pid_t child = -1;
    const auto spawn = program.search ? posix_spawnp : posix_spawn;
    const int error = [&] {
        const FreshStart start(program.fresh_start);
        return spawn(&child, words.front().c_str(), actions.get(), signals.get(), word_list.data(),
                     child_environment);
    }();
    if (error != 0)
        return {.error = error};
    if (program.size_limit > 0) {
        const rlimit limit{program.size_limit, program.size_limit};
        prlimit(child, RLIMIT_FSIZE, &limit, nullptr);
    }
    return {.child = child};
}

Ending run_listening(const Program &program, std::vector<Listened> &streams) {
    const WaitableChildren waitable;
    const Spawned started = spawned(program);
    if (started.error != 0)
        return {.start_error = started.error};
    return wait_for(started.child, program.time_limit, streams);
}

// A pipe whose reading end, ours alone, does not wait; the other stays as programs expect it. Nothing is open
// where there is none.
std::pair<Descriptor, Descriptor> listening_pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return {};
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// One of several programs at work.
class AtWork {
public:
    explicit AtWork(const Companion &companion) : companion_(&companion) {
        Program program = companion.program;
        program.time_limit = 0;
        std::array<Descriptor, 2> writers;
        for (std::size_t at = 0; at < readers_.size(); ++at) {
            std::tie(readers_[at], writers[at]) = listening_pipe();
            if (!writers[at]) {
                error_ = errno;
                return;
            }
            program.descriptors.emplace_back(stream_of(at), writers[at].get());
        }
        const Spawned started = spawned(program);
        error_ = started.error;
        child_ = started.child;
        if (error_ == 0)
            process_ = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, child_, 0)));
        end_by_ = companion.deadline();
    }

    int error() const { return error_; }
    pid_t child() const { return child_; }
    std::optional<Clock::time_point> next_step() const { return end_by_; }

    static constexpr std::size_t waits = 3;
    void add_waits(std::vector<pollfd> &waiting) const {
        waiting.push_back({process_.get(), POLLIN, 0});
        for (const Descriptor &reader : readers_)
            waiting.push_back({reader.get(), POLLIN, 0});
    }

    // True: it has ended, and its end was told.
    bool follow(const pollfd *ready) {
        for (std::size_t at = 0; at < readers_.size(); ++at)
            if (ready[at + 1].revents != 0 && !hear(at))
                readers_[at].reset();
        if (ready[0].revents != 0 || !process_) {
            tell_end();
            return true;
        }
        if (!is_stopped_)
            end_by_ = companion_->deadline();
        if (end_by_ && Clock::now() >= *end_by_)
            stop(true);
        return false;
    }

private:
    static int stream_of(std::size_t at) { return static_cast<int>(at) + STDOUT_FILENO; }

    bool hear(std::size_t at) {
        return read_ready(readers_[at].get(), [&](std::string_view piece) {
            const bool more = companion_->hear(stream_of(at), piece);
            if (!more && !is_stopped_)
                stop(false);
            return more;
        });
    }

    // Asked to end first, so that it can take leave of what it started itself.
    void stop(bool for_time) {
        timed_out_ = timed_out_ || for_time;
        kill(child_, is_stopped_ ? SIGKILL : SIGTERM);
        is_stopped_ = true;
        end_by_ = Clock::now() + std::chrono::seconds(2);
    }

    void tell_end() {
        Ending ending = ending_of(child_);
        ending.timed_out = timed_out_;
        is_stopped_ = true; // its number may be another's by now
        for (std::size_t at = 0; at < readers_.size(); ++at)
            if (readers_[at])
                hear(at);
        companion_->ended(ending);
    }

    const Companion *companion_;
    int error_ = 0;
    pid_t child_ = -1;
    Descriptor process_;
    std::array<Descriptor, 2> readers_;
    std::optional<Clock::time_point> end_by_;
    bool is_stopped_ = false;
    bool timed_out_ = false;
};

// Waits until something happens to one of them, or its time is up. The first is the signals' descriptor.
std::vector<pollfd> wait_for_one_of(const std::vector<AtWork> &programs) {
    std::vector<pollfd> waiting = {{signals_to_pass_on, POLLIN, 0}};
    std::optional<Clock::time_point> first;
    for (const AtWork &program : programs) {
        program.add_waits(waiting);
        if (const auto step = program.next_step(); step && (!first || *step < *first))
            first = step;
    }
    int limit = -1;
    if (first)
        limit = static_cast<int>(std::clamp<std::int64_t>(
            std::chrono::ceil<std::chrono::milliseconds>(*first - Clock::now()).count(), 0, 3'600'000));
    if (poll(waiting.data(), waiting.size(), limit) <= 0)
        for (pollfd &one : waiting)
            one.revents = 0;
    return waiting;
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
        auto [reader, writer] = listening_pipe();
        if (!writer) {
            answer.ending.start_error = errno;
            return answer;
        }
        std::string *text = stream == STDOUT_FILENO ? &answer.output : &answer.errors;
        streams.push_back({std::move(reader), text, limit});
        program.descriptors.emplace_back(stream, writers.emplace_back(std::move(writer)).get());
    }
    answer.ending = run_listening(program, streams);
    return answer;
}

void run_together(const std::vector<Companion> &companions, std::size_t at_once) {
    const WaitableChildren waitable;
    std::vector<AtWork> at_work;
    std::size_t next = 0;
    int signalled = 0;
    while (next < companions.size() || !at_work.empty()) {
        while (const auto signal = take_signal()) {
            signalled = static_cast<int>(signal->ssi_signo);
            for (const AtWork &program : at_work)
                pass_on(*signal, program.child());
        }
        if (next < companions.size() &&
            (signalled != 0 || at_work.size() < std::max<std::size_t>(at_once, 1))) {
            const Companion &companion = companions[next++];
            if (signalled != 0)
                companion.ended({.signal = signalled});
            else if (AtWork program(companion); program.error() != 0)
                companion.ended({.start_error = program.error()});
            else
                at_work.push_back(std::move(program));
            continue;
        }
        const std::vector<pollfd> ready = wait_for_one_of(at_work);
        std::vector<AtWork> still_at_work;
        for (std::size_t at = 0; at < at_work.size(); ++at)
            if (!at_work[at].follow(&ready[1 + at * AtWork::waits]))
                still_at_work.push_back(std::move(at_work[at]));
        at_work = std::move(still_at_work);
    }
}

SignalsPassedOn::SignalsPassedOn(int stream, Keyboard keyboard) {
    sigset_t passed_on;
    sigemptyset(&passed_on);
    sigprocmask(SIG_BLOCK, nullptr, &before_);
    std::vector<int> signals = {SIGTERM, SIGHUP};
    if (keyboard == Keyboard::is_passed_on)
        signals.insert(signals.end(), {SIGINT, SIGQUIT});
    for (const int signal : signals) {
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
