// SPDX-License-Identifier: MIT
#include "rehearsal/daemon_logs.hpp"

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>
#include <sys/stat.h>

namespace hostadm::rehearsal {

namespace {

// Files of syslog, in which others write as well, and the NFS server's own.
constexpr std::array files = {"/var/log/syslog", "/var/log/messages", "/var/log/daemon.log",
                              "/var/log/ganesha/ganesha.log"};
constexpr std::array daemons = {"rarpd", "tftpd", "rpcbind", "bootparam", "mountd", "nfsd", "ganesha"};

long long size_of(const std::string &path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) ? static_cast<long long>(file.st_size)
                                                                   : -1;
}

bool is_of_a_daemon(std::string_view line) {
    return std::any_of(daemons.begin(), daemons.end(),
                       [&](const char *name) { return line.find(name) != line.npos; });
}

} // namespace

DaemonLogs::DaemonLogs(const std::string &root) {
    for (const char *file : files)
        read_up_to_[root + file] = std::max(0LL, size_of(root + file));
    // What a syslog writes into its files the journal has as well.
    const bool has_syslog = std::any_of(files.begin(), files.end(), [&](const char *file) {
        return std::string_view(file).find("ganesha") == std::string_view::npos && size_of(root + file) >= 0;
    });
    if (!has_syslog)
        journal_.emplace();
}

std::vector<std::string> DaemonLogs::new_lines() {
    std::vector<std::string> lines;
    for (auto &[path, read] : read_up_to_) {
        const long long size = size_of(path);
        if (size < read)
            read = 0; // a new file has taken its place
        if (size <= read)
            continue;
        std::ifstream stream(path, std::ios::binary);
        stream.seekg(read);
        // A line that is not whole yet is left for the next time.
        for (std::string line; std::getline(stream, line) && !stream.eof();) {
            read += static_cast<long long>(line.size()) + 1;
            if (is_of_a_daemon(line))
                lines.push_back(line);
        }
    }
    if (journal_)
        for (std::string &line : journal_->new_lines())
            if (is_of_a_daemon(line))
                lines.push_back(std::move(line));
    return lines;
}

} // namespace hostadm::rehearsal
