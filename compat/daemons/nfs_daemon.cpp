// SPDX-License-Identifier: MIT
// mountd and nfsd: Debian's NFS server under the names by which the host administration library starts and
// recognises it. One program, told apart by the name it is called by.
//
// nfs-ganesha is both daemons in one. Whichever name comes first starts it under a watching process whose
// command line holds both paths: so both are seen exactly as long as the server runs, and starting the other
// one has nothing left to do. The kernel's server has its own mount daemon; its threads have no command line,
// so a watching process stands for them.
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <netdb.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/program.hpp"
#include "base/translation.hpp"
#include "compat/share/nfs_server.hpp"
#include "compat/share/share_table.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"
#include "compat/support/processes.hpp"

namespace compat {
namespace {

using namespace std::chrono_literals;
using hostadm::base::Descriptor;
using hostadm::base::Process;
using Clock = std::chrono::steady_clock;

constexpr const char *mountd_path = "/usr/lib/nfs/mountd";
constexpr const char *nfsd_path = "/usr/lib/nfs/nfsd";
constexpr const char *watch_word = "--watch";
constexpr const char *mountd_word = "--with-mountd";
constexpr const char *kernel_threads_program = "/usr/sbin/rpc.nfsd";
constexpr const char *kernel_mountd_program = "/usr/sbin/rpc.mountd";
constexpr const char *kernel_mountd_process = "rpc.mountd";
constexpr const char *ganesha_log = "/var/log/ganesha/ganesha.log";

// Of the daemon, whoever started it: its lock, and the pipe whose end tells the starter that it has ended.
constexpr int lock_descriptor = 3;
constexpr int end_descriptor = 4;

constexpr uint32_t rpcbind_program = 100000;
constexpr uint32_t mount_program = 100005;
constexpr uint32_t nfs_program = 100003;

constexpr const char *help = hostadm::base::translatable(R"(usage: /usr/lib/nfs/mountd [-F]
       /usr/lib/nfs/nfsd [-F] [-a] [-p PROTOCOL] [SERVERS]
Starts the installed NFS server, nfs-ganesha or the kernel's, and returns when it answers. Does nothing when it
runs already. What is served is the business of share(8).

  -F, --foreground   stay in the foreground until the server ends (for a service manager)
  -a                 serve all protocols; the servers do that anyway
  -p PROTOCOL        accepted for the sake of old start scripts
      SERVERS        number of threads of the kernel's server (8); nfs-ganesha chooses its own
  -h, --help         this text
Exit status: 0 the server runs, 1 it could not be started, 2 wrong usage. See hostadm-nfsd(8).
)");

struct Settings {
    std::string name;
    bool foreground = false;
    std::string threads = "8";
};

// ---- questions to rpcbind and the servers ----

constexpr uint16_t rpcbind_port = 111;
constexpr uint32_t by_tcp = 6;
constexpr uint32_t by_udp = 17;

sockaddr_in here(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

Descriptor connected(int type, uint16_t port) {
    Descriptor wire(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (!wire)
        fail_with_errno(hostadm::base::tr("cannot make a socket"));
    const sockaddr_in address = here(port);
    if (connect(wire.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        wire.reset();
    return wire;
}

// The results of a call by UDP, nothing when there is no answer. A datagram by hand, because the library call
// waits a minute for an rpcbind that hangs.
std::optional<std::vector<uint32_t>> call(uint16_t port, uint32_t program, uint32_t version,
                                          uint32_t procedure, const std::vector<uint32_t> &arguments) {
    const Descriptor wire = connected(SOCK_DGRAM, port);
    // Transaction, call, RPC 2, what to call, no credentials.
    std::vector<uint32_t> words = {0x5368, 0, 2, program, version, procedure, 0, 0, 0, 0};
    words.insert(words.end(), arguments.begin(), arguments.end());
    for (uint32_t &word : words)
        word = htonl(word);
    pollfd readable = {wire.get(), POLLIN, 0};
    uint32_t reply[16];
    if (!wire || send(wire.get(), words.data(), words.size() * sizeof words[0], MSG_NOSIGNAL) < 0 ||
        poll(&readable, 1, 500) <= 0)
        return std::nullopt;
    const ssize_t size = recv(wire.get(), reply, sizeof reply, 0);
    // Transaction, reply, accepted, no verifier (two words), success.
    constexpr size_t head = 6;
    const size_t count = size < 0 ? 0 : static_cast<size_t>(size) / sizeof reply[0];
    if (count < head || reply[0] != words[0] || ntohl(reply[5]) != 0)
        return std::nullopt;
    std::vector<uint32_t> results(reply + head, reply + count);
    for (uint32_t &result : results)
        result = ntohl(result);
    return results;
}

// The port of an RPC program, 0 when it is not registered, nothing when rpcbind does not answer.
std::optional<uint16_t> registered_port(uint32_t program, uint32_t version, uint32_t protocol) {
    constexpr uint32_t get_port = 3;
    const auto results = call(rpcbind_port, rpcbind_program, 2, get_port, {program, version, protocol, 0});
    if (!results || results->size() != 1)
        return std::nullopt;
    return static_cast<uint16_t>(results->front());
}

// Registered is not enough: rpcbind remembers servers that were killed.
// A server that somebody else started may have no UDP.
bool answers(uint32_t program, uint32_t version) {
    if (const uint16_t port = registered_port(program, version, by_udp).value_or(0))
        return call(port, program, version, 0, {}).has_value();
    const uint16_t port = registered_port(program, version, by_tcp).value_or(0);
    return port != 0 && connected(SOCK_STREAM, port);
}

template <typename Condition> bool comes_true(std::chrono::milliseconds patience, Condition condition) {
    const auto end = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

void require_rpcbind() {
    if (!comes_true(1s, [] { return registered_port(rpcbind_program, 2, by_udp).has_value(); }))
        throw Failure(
            getservbyname("sunrpc", "udp") == nullptr
                ? hostadm::base::tr("rpcbind does not answer, since /etc/services does not tell its port "
                                    "(\"sunrpc\"); install the package netbase and restart rpcbind")
                : hostadm::base::tr("rpcbind does not answer; install the package rpcbind and start it with "
                                    "\"rpcbind -w -r\" (-r lets clients' broadcasts through)"));
}

// Without it nfs-ganesha runs, but refuses every share.
void require_mount_table() {
    if (access("/etc/mtab", R_OK) != 0)
        throw Failure(
            hostadm::base::tr("nfs-ganesha looks for the file systems in /etc/mtab, which is missing; make "
                              "it: ln -s ../proc/self/mounts /etc/mtab"));
}

// ---- the watching process ---------------------------------------------------------------------------------

void publish_now(const NfsServer &server, bool reload_always) {
    const FileLock lock(share_lock_path, share_lock_patience);
    if (publish_shares(server) || reload_always)
        server.reload();
}

class Signals {
public:
    Signals() {
        sigemptyset(&set_);
        for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
            sigaddset(&set_, number);
        if (sigprocmask(SIG_BLOCK, &set_, nullptr) != 0)
            fail_with_errno(hostadm::base::tr("cannot block signals"));
        descriptor_ = Descriptor(signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK));
        if (!descriptor_)
            fail_with_errno(hostadm::base::tr("cannot receive signals"));
    }
    int get() const { return descriptor_.get(); }
    int next() const {
        signalfd_siginfo info;
        return read(descriptor_.get(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo)
                                                                          : 0;
    }

private:
    sigset_t set_;
    Descriptor descriptor_;
};

// Tells when the hosts table has changed: the clients of
// a share may have got their addresses after the share.
class HostsWatch {
public:
    HostsWatch() : descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        if (!descriptor_ || inotify_add_watch(descriptor_.get(), "/etc", IN_CLOSE_WRITE | IN_MOVED_TO) < 0)
            fail_with_errno(hostadm::base::tr("cannot watch /etc"));
    }
    int get() const { return descriptor_.get(); }
    bool changed() const {
        alignas(inotify_event) char events[4096];
        bool hosts = false;
        for (;;) {
            const ssize_t count = read(descriptor_.get(), events, sizeof events);
            if (count <= 0)
                return hosts;
            for (const char *at = events; at < events + count;) {
                const auto *const event = reinterpret_cast<const inotify_event *>(at);
                if (event->len > 0 && std::strcmp(event->name, "hosts") == 0)
                    hosts = true;
                at += sizeof *event + event->len;
            }
        }
    }

private:
    Descriptor descriptor_;
};

pid_t start_ganesha() {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        fail_with_errno(hostadm::base::tr("cannot start {1}", ganesha_program));
    if (child > 0)
        return child;
    // A hangup stays blocked: it must find the server's signal thread, not its first instructions.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    sigprocmask(SIG_SETMASK, &set, nullptr);
    close_range(3, ~0U, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1);
    execl(ganesha_program, ganesha_program, "-F", "-L", ganesha_log, "-f", ganesha_settings, "-p",
          "/run/ganesha.pid", nullptr);
    _exit(127);
}

// Stays until the server has ended; gives the exit status. `child` is 0 for the kernel's threads.
int watch(const NfsServer &server, pid_t child, const Signals &signals, const HostsWatch &hosts) {
    bool stopping = false;
    for (;;) {
        pollfd events[] = {{signals.get(), POLLIN, 0}, {hosts.get(), POLLIN, 0}};
        if (poll(events, 2, stopping ? 5000 : -1) == 0 && child > 0)
            kill(child, SIGKILL);
        bool refresh = false;
        while (const int number = signals.next()) {
            if (number == SIGHUP)
                refresh = true;
            else if (number != SIGCHLD && child == 0)
                return hostadm::base::run({.words = {kernel_threads_program, "0"}}).well() ? 0 : 1;
            else if (number != SIGCHLD && !stopping) {
                stopping = true;
                close(lock_descriptor); // the next server may be started now; it waits for this one
                kill(child, SIGTERM);
            }
        }
        int status = 0;
        if (child > 0 && waitpid(child, &status, WNOHANG) == child)
            return stopping || (WIFEXITED(status) && WEXITSTATUS(status) == 0) ? 0 : 1;
        const bool hosts_changed = hosts.changed();
        if (!stopping && (refresh || hosts_changed)) {
            try {
                publish_now(server, refresh);
            } catch (const std::exception &error) {
                print_complaint("nfsd", error.what());
            }
        }
    }
}

int watch_ganesha() {
    const auto server = find_nfs_server();
    const Signals signals;
    const HostsWatch hosts;
    publish_now(*server, false);
    return watch(*server, start_ganesha(), signals, hosts);
}

int watch_kernel_threads(const std::string &threads, bool with_mountd) {
    const auto server = find_nfs_server();
    const Signals signals;
    const HostsWatch hosts;
    publish_now(*server, true);
    // Old clients have no TCP.
    run_or_fail({kernel_threads_program, "--udp", threads});
    if (with_mountd)
        run_or_fail({mountd_path});
    return watch(*server, 0, signals, hosts);
}

// ---- starting ---------------------------------------------------------------------------------------------

void execute(const char *program, const std::vector<std::string> &words) {
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execv(program, arguments.data());
    fail_with_errno(hostadm::base::tr("cannot run {1}", program));
}

// Turns this process, or one of its own in the background, into `program`; in the background, returns when
// `answers` holds and throws when the program ends before.
template <typename Condition>
int launch(const Settings &settings, const char *program, const std::vector<std::string> &words,
           Condition answers, const std::string &hint) {
    if (settings.foreground)
        execute(program, words);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail_with_errno(hostadm::base::tr("cannot make a pipe"));
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const pid_t child = fork();
    if (child < 0)
        fail_with_errno(hostadm::base::tr("cannot make a process"));
    if (child == 0) {
        // A daemon must hold nobody's pipe open; the server writes to its log.
        // It may be one of the three itself, and then must stay open.
        const int null = open("/dev/null", O_RDWR); // NOLINT(android-cloexec-open)
        for (const int number : {0, 1, 2})
            dup2(null, number);
        dup2(writing.get(), end_descriptor);
        fcntl(end_descriptor, F_SETFD, 0);
        close_range(end_descriptor + 1, ~0U, 0);
        setsid();
        if (chdir("/") != 0)
            _exit(1);
        try {
            execute(program, words);
        } catch (...) {
        }
        _exit(127);
    }
    writing.reset();
    bool ended = false;
    const bool up = comes_true(10s, [&] {
        pollfd end = {reading.get(), POLLIN, 0};
        ended = poll(&end, 1, 0) > 0;
        return ended || answers();
    });
    if (ended)
        throw Failure(hostadm::base::tr("the NFS server ended at once; {1}", hint));
    if (!up)
        throw Failure(hostadm::base::tr("the NFS server has not answered for 10 seconds; {1}", hint));
    return 0;
}

bool file_system_module_installed() {
    for (const char *const directory :
         {"/usr/lib/x86_64-linux-gnu", "/usr/lib/aarch64-linux-gnu", "/usr/lib/i386-linux-gnu",
          "/usr/lib/arm-linux-gnueabihf", "/usr/lib"}) {
        const std::string module = std::string(directory) + "/ganesha/libfsalvfs.so";
        if (access(module.c_str(), R_OK) == 0)
            return true;
    }
    return false;
}

// Of a client of version 4 root is 0 and not a name, which it could not look up before its root is mounted.
std::string settings_text(const std::string &protocols, const std::string &version_4) {
    return "# Settings of the NFS server that /usr/lib/nfs/nfsd starts. Written once.\n"
           "# Without lock manager and grace period: a client that boots must write at\n"
           "# once, not 90 seconds after the start of the server.\n"
           "NFS_CORE_PARAM {\n"
           "    Protocols = " +
           protocols +
           ";\n"
           "    Enable_NLM = false;\n"
           "    Enable_RQUOTA = false;\n"
           "}\n"
           "NFSv4 { Graceless = true;" +
           version_4 +
           " }\n"
           "%include \"" +
           std::string(ganesha_exports) + "\"\n";
}

// Kept when it is there, so that the administrator may change it; but not as it was written before version 4 was
// served.
void write_ganesha_settings() {
    make_directories("/etc/ganesha");
    make_directories("/var/log/ganesha");
    const auto present = read_file(ganesha_settings);
    if (present && present->find(ganesha_exports) == std::string::npos)
        throw Failure(hostadm::base::tr(
            "{1} does not include {2}, so nothing would be served; remove it to have it written again",
            ganesha_settings, ganesha_exports));
    if (!present || *present == settings_text("3", ""))
        replace_file(ganesha_settings, settings_text("3, 4", " Only_Numeric_Owners = true;"));
}

// The lock of a server that does not run; nothing when it runs, as soon as it answers.
template <typename Condition>
std::optional<FileLock> lock_unless_running(const char *path, Condition answers) {
    std::optional<FileLock> lock;
    bool running = false;
    comes_true(10s, [&] {
        lock = FileLock::try_take(path);
        running = !lock && answers();
        return lock || running;
    });
    if (lock)
        lock->hand_over(lock_descriptor);
    else if (!running)
        throw Failure(
            hostadm::base::tr("the server that is running or being started has not answered for 10 seconds"));
    return lock;
}

bool ganesha_answers() {
    return !daemons_named(ganesha_process).empty() && answers(mount_program, 3) && answers(nfs_program, 3);
}

int start_ganesha_server(const Settings &settings) {
    const auto lock = lock_unless_running("/run/nfsd.lock", ganesha_answers);
    if (!lock)
        return 0;
    if (!file_system_module_installed())
        throw Failure(hostadm::base::tr("the package nfs-ganesha-vfs is missing; install it"));
    // One that we started may still be on its way out.
    if (!comes_true(1s, [] { return daemons_named(ganesha_process).empty(); }))
        throw Failure(hostadm::base::tr(
            "another ganesha.nfsd runs, process {1}; stop it first: systemctl disable --now nfs-ganesha",
            daemons_named(ganesha_process).front().pid));
    require_rpcbind();
    write_ganesha_settings();
    require_mount_table();
    return launch(settings, "/proc/self/exe", {nfsd_path, watch_word, mountd_path}, ganesha_answers,
                  hostadm::base::tr("see {1}", ganesha_log));
}

int start_kernel_mountd(const Settings &settings) {
    const auto mountd_answers = [] { return answers(mount_program, 3); };
    const auto lock = lock_unless_running("/run/mountd.lock", mountd_answers);
    if (!lock)
        return 0;
    const std::vector<Process> running = daemons_named(kernel_mountd_process);
    if (!running.empty())
        throw Failure(hostadm::base::tr(
            "rpc.mountd runs already, process {1}; stop it first: systemctl disable --now nfs-server",
            running.front().pid));
    require_rpcbind();
    return launch(settings, kernel_mountd_program, {mountd_path, "-F"}, mountd_answers,
                  hostadm::base::tr("see the system's log"));
}

int start_kernel_threads(const Settings &settings) {
    const auto nfsd_answers = [] { return answers(nfs_program, 3); };
    const auto lock = lock_unless_running("/run/nfsd.lock", nfsd_answers);
    if (!lock)
        return 0;
    require_rpcbind();
    std::vector<std::string> words = {nfsd_path, watch_word, settings.threads};
    // Who runs it in the foreground, a service manager, has no other service for it; without it nobody mounts.
    if (settings.foreground)
        words.emplace_back(mountd_word);
    return launch(
        settings, "/proc/self/exe", words, nfsd_answers,
        hostadm::base::tr("does this kernel have an NFS server (modprobe nfsd)? See the system's log"));
}

Settings parse(int argc, char **argv) {
    static const option long_options[] = {{"foreground", no_argument, nullptr, 'F'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    Settings settings;
    const char *const slash = std::strrchr(argv[0], '/');
    settings.name = slash != nullptr ? slash + 1 : argv[0];
    for (;;) {
        const int letter =
            getopt_long(argc, argv, settings.name == "mountd" ? "Fh" : "Fhap:", long_options, nullptr);
        if (letter == -1)
            break;
        if (letter == 'F')
            settings.foreground = true;
        else if (letter == 'h') {
            std::fputs(hostadm::base::tr(help), stdout);
            std::exit(0);
        } else if (letter == '?')
            std::exit(2);
    }
    // "nfsd -a 16"
    for (int index = optind; index < argc; ++index) {
        const std::string word = argv[index];
        if (settings.name == "mountd" || word.empty() || word.size() > 5 ||
            word.find_first_not_of("0123456789") != std::string::npos) {
            print_complaint(settings.name,
                            hostadm::base::tr("\"{1}\" is no number of servers; try --help", word));
            std::exit(2);
        }
        settings.threads = word;
    }
    return settings;
}

int start(const Settings &settings) {
    const auto server = find_nfs_server();
    if (!server->is_kernel())
        return start_ganesha_server(settings);
    return settings.name == "mountd" ? start_kernel_mountd(settings) : start_kernel_threads(settings);
}

} // namespace
} // namespace compat

int main(int argc, char **argv) {
    hostadm::base::speak_the_users_language();
    if (argc >= 3 && std::strcmp(argv[1], compat::watch_word) == 0)
        return compat::guarded_main("nfsd", 1, [&] {
            prctl(PR_SET_NAME, "nfsd"); // it was started as /proc/self/exe, and would be called "exe"
            return std::strcmp(argv[2], compat::mountd_path) == 0
                       ? compat::watch_ganesha()
                       : compat::watch_kernel_threads(argv[2], argc > 3);
        });
    const compat::Settings settings = compat::parse(argc, argv);
    return compat::guarded_main(settings.name, 1, [&] { return compat::start(settings); });
}
