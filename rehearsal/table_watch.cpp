// SPDX-License-Identifier: MIT
#include "rehearsal/table_watch.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/inotify.h>
#include <unistd.h>
#include <vector>

#include "base/translation.hpp"
#include "rehearsal/daemons_of_this_server.hpp"
#include "server/boot_area.hpp"
#include "server/pc_area.hpp"

namespace hostadm::rehearsal {

namespace {

constexpr int settle_time = 300, look_at_daemons = 1000; // milliseconds

// Of /etc, where much else changes.
constexpr std::array tables = {"hosts",      "ethers",      "bootparams", "nsswitch.conf",
                               "inetd.conf", "hosts.allow", "hosts.deny", "exports",
                               "vfstab",     "passwd",      "group",      "rpcbind.conf",
                               "services",   "rpc",         "netconfig",  "nftables.conf"};

std::vector<int> daemon_processes() {
    std::vector<int> processes;
    for (const DaemonStart &daemon : daemons_of_this_server(Settings::of_processes))
        processes.push_back(daemon.pid);
    return processes;
}

} // namespace

TableWatch::TableWatch(const std::string &root) : events_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!events_.is_open())
        throw std::runtime_error(base::tr("changes of files cannot be watched: {1}", std::strerror(errno)));
    for (const char *directory : {"/etc", "/etc/default", "/etc/dfs", "/etc/ganesha", "/etc/systemd/system",
                                  "/etc/exports.d", "/etc/dnsmasq.d", server::tftpboot, server::pc_boot_tree})
        watch(directory);
    if (!root.empty())
        for (const char *below : {"", "/etc", "/sbin", "/dev"})
            watch(root + below);
}

void TableWatch::watch(const std::string &directory) {
    const int number = inotify_add_watch(events_.get(), directory.c_str(),
                                         IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE |
                                             IN_DELETE | IN_ATTRIB | IN_ONLYDIR);
    if (number >= 0)
        directories_[number] = directory;
}

std::string TableWatch::changed_file() {
    alignas(inotify_event) char buffer[4096];
    std::string changed;
    for (ssize_t length; (length = read(events_.get(), buffer, sizeof buffer)) > 0;)
        for (ssize_t at = 0; at < length;) {
            const auto &event = *reinterpret_cast<const inotify_event *>(buffer + at);
            at += static_cast<ssize_t>(sizeof event + event.len);
            const std::string name = event.len > 0 ? event.name : "";
            const std::string directory = directories_[event.wd];
            if (directory == "/etc" && std::find(tables.begin(), tables.end(), name) == tables.end())
                continue;
            changed = directory + '/' + name;
        }
    return changed;
}

std::string TableWatch::wait() {
    const std::vector<int> before = daemon_processes();
    std::string changed;
    for (;;) {
        pollfd readable{events_.get(), POLLIN, 0};
        const int ready = poll(&readable, 1, changed.empty() ? look_at_daemons : settle_time);
        if (ready < 0 && errno != EINTR)
            throw std::runtime_error(
                base::tr("changes of files cannot be watched: {1}", std::strerror(errno)));
        if (ready > 0) {
            if (const std::string file = changed_file(); !file.empty())
                changed = file;
        } else if (ready == 0) {
            if (!changed.empty())
                return changed;
            if (daemon_processes() != before)
                changed = "a daemon";
        }
    }
}

} // namespace hostadm::rehearsal
