// SPDX-License-Identifier: MIT
#include "rehearsal/started_daemons.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "rehearsal/rpc.hpp"

namespace hostadm::rehearsal {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char *logs = "/run/hostadm-rehearsal";

std::string log_of(const DaemonStart &start) {
    return std::string(logs) + '/' + start.name + ".log";
}

// What a host has in /run when it has booted, and the throwaway root has not.
void make_run_directories() {
    std::error_code error;
    for (const char *directory :
         {logs, "/run/rpcbind", "/run/ganesha", "/run/dnsmasq", "/run/sendsigs.omit.d"})
        std::filesystem::create_directories(directory, error);
    if (const passwd *user = getpwnam("_rpc"); user != nullptr && chown("/run/rpcbind", user->pw_uid, 0) != 0)
        chmod("/run/rpcbind", 0777);
    if (const passwd *user = getpwnam("dnsmasq");
        user != nullptr && chown("/run/dnsmasq", user->pw_uid, 0) != 0)
        chmod("/run/dnsmasq", 0777);
}

std::vector<char *> pointers(std::vector<std::string> &words) {
    std::vector<char *> list;
    for (std::string &word : words)
        list.push_back(word.data());
    list.push_back(nullptr);
    return list;
}

// Its own process goes on; what it says goes to its log.
pid_t start_in_background(const DaemonStart &start, int &error) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log_of(start).c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    std::vector<std::string> words = start.words;
    if (!start.inetd_line.empty()) {
        const std::string table = std::string(logs) + "/inetd.conf";
        std::ofstream(table) << start.inetd_line << '\n';
        words.push_back(table);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
    pid_t child = -1;
    std::vector<char *> list = pointers(words);
    error = posix_spawnp(&child, start.program.c_str(), &actions, &attributes, list.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

bool listens(const char *table, std::string_view wanted, std::size_t column) {
    bool found = false;
    base::for_each_line(base::file_contents(table), [&](std::string_view line) {
        const auto words = base::words_of(line);
        found = found || (words.size() > column && words[column].ends_with(wanted));
    });
    return found;
}

bool serves(Service service, const std::string &server) {
    constexpr const char *tftp_port = ":0045", *dhcp_port = ":0043", *reverse_arp = "8035";
    const auto answer = [&](std::uint32_t program, std::uint32_t version) {
        return answers("127.0.0.1", program, version) ||
               (!server.empty() && answers(server, program, version));
    };
    switch (service) {
    case Service::port_mapper:
        return answer(port_mapper_program, 2);
    case Service::boot_parameters:
        return answer(bootparams_program, 1);
    case Service::nfs:
        return answer(mount_program, 3) && answer(nfs_program, 3);
    case Service::tftp:
        return listens("/proc/net/udp", tftp_port, 1) || listens("/proc/net/udp6", tftp_port, 1);
    case Service::dhcp:
        return listens("/proc/net/udp", dhcp_port, 1);
    case Service::reverse_arp:
        return listens("/proc/net/packet", reverse_arp, 3);
    }
    return false;
}

// They serve within 50 ms where nothing else runs; an NFS server reads all its exports first, on a busy server for seconds.
Clock::duration patience_with(Service service) {
    return service == Service::nfs && answers("127.0.0.1", port_mapper_program, 2) ? 8s : 1500ms;
}

std::string last_line_of(const std::string &path) {
    std::string last;
    base::for_each_line(base::file_contents(path), [&](std::string_view line) {
        if (!base::trimmed(line).empty())
            last = base::trimmed(line);
    });
    constexpr std::size_t longest = 300;
    return last.substr(0, longest);
}

void wait_until_it_serves(Started &daemon, pid_t child, const std::string &server) {
    const auto end = Clock::now() + patience_with(daemon.start.service);
    std::string ended;
    while (!serves(daemon.start.service, server)) {
        int status = 0;
        if (child > 0 && waitpid(child, &status, WNOHANG) == child) {
            child = -1;
            if (WIFSIGNALED(status))
                ended = base::tr("was killed by a signal ({1})", strsignal(WTERMSIG(status)));
            else if (WEXITSTATUS(status) != 0)
                ended = base::tr("ended with exit status {1}", WEXITSTATUS(status));
        }
        if (!ended.empty() || Clock::now() >= end) {
            daemon.failure = ended.empty() ? base::tr("was started and does not serve") : ended;
            break;
        }
        std::this_thread::sleep_for(2ms);
    }
    daemon.said = last_line_of(log_of(daemon.start));
}

} // namespace

std::vector<Started> start_daemons(const std::vector<DaemonStart> &starts, const std::string &server) {
    make_run_directories();
    std::vector<Started> started;
    std::vector<pid_t> children;
    for (const DaemonStart &start : starts) {
        Started &daemon = started.emplace_back(Started{start, {}, {}});
        pid_t child = -1;
        if (start.in_kernel) {
            daemon.failure = base::tr("is in the kernel and cannot be started a second time");
        } else if (start.program.empty()) {
            daemon.failure = base::tr("is started by nothing on this server");
        } else {
            int error = 0;
            child = start_in_background(start, error);
            if (error != 0)
                daemon.failure = base::tr("cannot be started: {1}: {2}", start.program, std::strerror(error));
        }
        children.push_back(child);
        // The others register with the port mapper.
        if (start.service == Service::port_mapper && daemon.failure.empty())
            wait_until_it_serves(daemon, child, server);
    }
    for (std::size_t at = 0; at < started.size(); ++at)
        if (started[at].failure.empty() && started[at].start.service != Service::port_mapper)
            wait_until_it_serves(started[at], children[at], server);
    return started;
}

} // namespace hostadm::rehearsal
