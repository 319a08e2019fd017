// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <string>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <utility>

#include "base/translation.hpp"
#include "hostadm/sandbox.hpp"
#include "sandbox/changes.hpp"
#include "sandbox/channel.hpp"
#include "sandbox/confinement.hpp"
#include "sandbox/device_nodes.hpp"
#include "sandbox/private_root.hpp"
#include "sandbox/shown_processes.hpp"
#include "sandbox/tree.hpp"

namespace hostadm::sandbox {

namespace {

constexpr int status_timed_out = 124;

// Signals that end a run. They are held back from the caller's own handling meanwhile.
class HeldSignals {
public:
    HeldSignals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            sigaddset(&held, signal);
        sigprocmask(SIG_BLOCK, &held, &before_);
        signals_ = Descriptor(signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK));
    }
    ~HeldSignals() { restore(); }
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

    int descriptor() const { return signals_.get(); }
    int next() const {
        signalfd_siginfo info;
        return read(signals_.get(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
    }
    void restore() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
    Descriptor signals_;
};

// The first process of the private root. Whatever happens,
// it is ended (and with it all that runs there) and waited for.
class FirstProcess {
public:
    explicit FirstProcess(pid_t id) : id_(id) {}
    ~FirstProcess() { end(); }
    FirstProcess(const FirstProcess &) = delete;
    FirstProcess &operator=(const FirstProcess &) = delete;

    void end() {
        if (id_ <= 0)
            return;
        kill(id_, SIGKILL);
        while (waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
        }
        id_ = -1;
    }

private:
    pid_t id_;
};

// what() ends in the text of the code, which the other side puts together again.
std::string step_of(const Error &error) {
    std::string step = error.what();
    const std::string reason = ": " + error.code().message();
    if (step.ends_with(reason))
        step.resize(step.size() - reason.size());
    return step;
}

std::string working_directory() {
    std::array<char, PATH_MAX> path;
    return getcwd(path.data(), path.size()) != nullptr ? path.data() : "/";
}

// A command that could not be confined is not run. The first process learns where device nodes are asked for.
void confine_or_end(int socket, int first_process) {
    try {
        Message message{Message::Kind::confined, 0, {}, {}};
        message.descriptors.push_back(confine());
        if (!send(first_process, message))
            fail(base::tr("hand over the requests for device nodes"));
    } catch (const Error &error) {
        send(socket, {Message::Kind::command_failed, error.code().value(), step_of(error), {}});
        _exit(1);
    }
}

// A build that looks for its own mistakes cannot look for leaks where other processes are hidden from it.
void look_for_no_leaks([[maybe_unused]] const Options &options) {
#if defined(__SANITIZE_ADDRESS__)
    const char *asked = getenv("ASAN_OPTIONS");
    if (options.live_processes && options.confined)
        setenv("ASAN_OPTIONS",
               ((asked == nullptr ? "" : asked + std::string(":")) + "detect_leaks=0").c_str(), 1);
#endif
}

[[noreturn]] void run_command(const Options &options, const std::string &directory,
                              const HeldSignals &signals, int socket, int first_process) {
    signals.restore();
    setenv("HOSTADM_SANDBOX", "1", 1);
    look_for_no_leaks(options);
    if (chdir(directory.c_str()) != 0 && chdir("/") != 0)
        _exit(1);
    if (options.confined)
        confine_or_end(socket, first_process);
    if (options.command.empty()) {
        int status = 1;
        try {
            status = options.work();
        } catch (const std::exception &error) {
            std::fprintf(stderr, "%s\n", error.what());
        }
        std::fflush(nullptr);
        _exit(status);
    }
    std::vector<char *> arguments;
    for (const std::string &argument : options.command)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    send(socket, {Message::Kind::command_failed, errno, base::tr("start {1}", options.command[0]), {}});
    _exit(127);
}

// Waits for the command and for every orphan that is handed to the first process meanwhile, and makes the
// device nodes that they ask for.
int wait_status_of(pid_t command, const DeviceNodes &nodes) {
    for (;;) {
        if (nodes.descriptor() >= 0) {
            constexpr int pause = 50; // milliseconds, after which those that have ended are looked for
            pollfd asked{nodes.descriptor(), POLLIN, 0};
            if (poll(&asked, 1, pause) > 0 && (asked.revents & POLLIN) != 0)
                nodes.answer();
        }
        int status = 0;
        const pid_t ended = waitpid(-1, &status, nodes.descriptor() >= 0 ? WNOHANG : 0);
        if (ended == command)
            return status;
        if (ended < 0 && errno != EINTR)
            return 1 << 8;
    }
}

// Starts the command and sees it to its end.
int run_to_its_end(const Options &options, const std::string &directory, const HeldSignals &signals,
                   int socket) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        fail(base::tr("make a channel"));
    const Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    const pid_t command = fork();
    if (command < 0)
        fail(base::tr("start a process"));
    if (command == 0)
        run_command(options, directory, signals, socket, theirs.get());
    theirs.reset();
    DeviceNodes nodes;
    if (options.confined)
        if (std::optional<Message> message = receive(ours.get()); message && !message->descriptors.empty())
            nodes = DeviceNodes(std::move(message->descriptors.front()));
    return wait_status_of(command, nodes);
}

bool caller_has_gone(int socket) {
    pollfd state{socket, 0, 0};
    return poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR)) != 0;
}

[[noreturn]] void be_first_process(const Options &options, const LiveNetwork &network, Descriptor processes,
                                   const HeldSignals &signals, int socket) {
    // The kernel ends this process with its caller, and with this one everything in its process namespace.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (caller_has_gone(socket))
        _exit(1);
    try {
        const std::string directory = working_directory();
        RootListener listener;
        listener.on_layers = [&](Layers layers) {
            Message message{Message::Kind::area, 0, layers.mount_point, {}};
            message.descriptors.push_back(std::move(layers.written));
            message.descriptors.push_back(std::move(layers.merged));
            message.descriptors.push_back(std::move(layers.found));
            if (!send(socket, message))
                fail(base::tr("hand over the layers of {1}", layers.mount_point));
        };
        listener.on_read_only = [&](const std::string &point) {
            send(socket, {Message::Kind::read_only, 0, point, {}});
        };
        enter_private_root(options, network, std::move(processes), listener);
        send(socket, {Message::Kind::ended, run_to_its_end(options, directory, signals, socket), {}, {}});
    } catch (const Error &error) {
        send(socket, {Message::Kind::setup_failed, error.code().value(), step_of(error), {}});
    } catch (const std::exception &error) {
        send(socket, {Message::Kind::setup_failed, ENOMEM, error.what(), {}});
    }
    _exit(1);
}

pid_t start_first_process(const Options &options, const HeldSignals &signals, const Descriptor &callers_end,
                          int socket) {
    constexpr unsigned long namespaces =
        CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWUTS | CLONE_NEWIPC;
    const LiveNetwork network = options.live_network ? LiveNetwork::seen() : LiveNetwork();
    Descriptor processes = options.live_processes && options.confined ? closed_processes() : Descriptor();
    std::fflush(nullptr); // or the child would write the caller's buffers once more
    const pid_t id =
        static_cast<pid_t>(syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    if (id < 0) {
        const int error = errno;
        throw Error(Error::Kind::unavailable, error,
                    error == EPERM ? base::tr("a private root can only be made by root")
                                   : base::tr("make a private root"));
    }
    if (id == 0) {
        close(callers_end.get());
        be_first_process(options, network, std::move(processes), signals, socket);
    }
    return id;
}

int exit_status_of(int wait_status) {
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

using Clock = std::chrono::steady_clock;

// Milliseconds for poll; -1 for ever.
int time_left(const Options &options, Clock::time_point start) {
    if (options.time_limit.count() == 0)
        return -1;
    const auto left =
        options.time_limit - std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, INT_MAX));
}

// What a run said, in the end.
struct Report {
    Outcome outcome;
    std::unique_ptr<Changes::Areas> areas = std::make_unique<Changes::Areas>();
    bool ended = false;
};

void take(Message message, Report &report) {
    switch (message.kind) {
    case Message::Kind::area:
        if (message.descriptors.size() == 3)
            report.areas->list.push_back({message.text, std::move(message.descriptors[0]),
                                          std::move(message.descriptors[1]),
                                          std::move(message.descriptors[2])});
        return;
    case Message::Kind::confined:
        return;
    case Message::Kind::read_only:
        report.outcome.read_only.push_back(message.text);
        return;
    case Message::Kind::setup_failed:
        throw Error(Error::Kind::setup, message.number, message.text);
    case Message::Kind::unavailable:
        throw Error(Error::Kind::unavailable, message.number, message.text);
    case Message::Kind::command_failed:
        throw Error(Error::Kind::command, message.number, message.text);
    case Message::Kind::ended:
        report.outcome.exit_status = exit_status_of(message.number);
        report.ended = true;
        return;
    }
}

// Listens until the command has ended, the time is up or a signal came.
void attend(const Options &options, const HeldSignals &signals, int socket, Report &report) {
    const auto start = Clock::now();
    while (!report.ended) {
        std::array<pollfd, 2> events = {{{socket, POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
        const int ready = poll(events.data(), events.size(), time_left(options, start));
        if (ready < 0 && errno != EINTR)
            throw Error(Error::Kind::setup, errno, base::tr("wait for the command"));
        if (ready == 0) {
            report.outcome.timed_out = true;
            report.outcome.exit_status = status_timed_out;
            return;
        }
        if (ready > 0 && events[1].revents != 0) {
            report.outcome.interrupted_by = signals.next();
            report.outcome.exit_status = 128 + report.outcome.interrupted_by;
            return;
        }
        if (ready > 0 && events[0].revents != 0) {
            std::optional<Message> message = receive(socket);
            if (!message) {
                report.outcome.exit_status = 128 + SIGKILL; // somebody killed it from outside
                return;
            }
            take(std::move(*message), report);
        }
    }
}

} // namespace

Outcome run(const Options &options) {
    if (options.command.empty() && !options.work)
        throw Error(Error::Kind::command, EINVAL, base::tr("run nothing"));
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        throw Error(Error::Kind::setup, errno, base::tr("make a channel"));
    const Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    Report report;
    {
        const HeldSignals signals;
        FirstProcess first(start_first_process(options, signals, ours, theirs.get()));
        theirs.reset();
        attend(options, signals, ours.get(), report);
        first.end();
    }
    report.outcome.changes = Changes(std::move(report.areas));
    report.outcome.changes.collect();
    return std::move(report.outcome);
}

} // namespace hostadm::sandbox
