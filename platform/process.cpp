// SPDX-License-Identifier: MIT
// Process records, as a System V process file system gives them.
#include "platform/process.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "base/boundary.hpp"
#include "base/descriptor.hpp"
#include "base/processes.hpp"

namespace hostadm::platform {

namespace {

// More than the start of a stat line can take: a number and a name of at most 63 bytes.
constexpr std::size_t stat_start = 128;

template <std::size_t Size>
std::optional<std::string_view> read_start(int directory_fd, const char *name,
                                           std::array<char, Size> &buffer) {
    const base::Descriptor file(openat(directory_fd, name, O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return std::nullopt;
    const ssize_t size = read(file.get(), buffer.data(), buffer.size());
    if (size < 0)
        return std::nullopt;
    return std::string_view(buffer.data(), static_cast<std::size_t>(size));
}

template <std::size_t Size> void copy_cut(std::string_view text, char (&field)[Size]) {
    const std::size_t kept = std::min(text.size(), Size - 1);
    std::memcpy(field, text.data(), kept);
    std::memset(field + kept, '\0', Size - kept);
}

} // namespace

std::string joined_arguments(std::string_view command_line) {
    std::string joined(command_line.substr(0, command_line.find_last_not_of('\0') + 1));
    std::replace(joined.begin(), joined.end(), '\0', ' ');
    return joined;
}

bool read_process(int directory_fd, struct sysv_psinfo &info) {
    // The command line comes first: when the process ends between the two reads, the state read last says so,
    // and an empty command line is never taken for that of a live process.
    std::array<char, sizeof info.pr_psargs> command_line_buffer;
    const auto command_line = read_start(directory_fd, "cmdline", command_line_buffer);
    if (!command_line)
        return false;
    std::array<char, stat_start> stat_buffer;
    const auto stat_text = read_start(directory_fd, "stat", stat_buffer);
    if (!stat_text)
        return false;
    const auto stat = base::parse_process_stat(*stat_text);
    if (!stat) {
        errno = EINVAL;
        return false;
    }
    const bool defunct = stat->is_defunct();
    info.pr_zomb = defunct ? 1 : 0;
    info.pr_pid = stat->pid;
    copy_cut(stat->name, info.pr_fname);
    copy_cut(defunct ? std::string("/").append(info.pr_fname) : joined_arguments(*command_line),
             info.pr_psargs);
    return true;
}

} // namespace hostadm::platform

namespace {

// "/proc/1", whatever the file system that is mounted there.
bool names_a_process(std::string_view path) {
    constexpr std::string_view table = "/proc/";
    return path.starts_with(table) && path.size() > table.size() &&
           path.find_first_not_of("0123456789", table.size()) == path.npos;
}

std::string path_of(int fd) {
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = readlink(link.c_str(), path, sizeof path);
    return {path, size < 0 ? 0 : static_cast<std::size_t>(size)};
}

// A preview lays what may be seen of a live process over its folder of /proc, where nobody but root mounts anything.
bool is_in_process_table(int fd) {
    struct statfs file_system;
    if (fstatfs(fd, &file_system) != 0)
        return false;
    if (file_system.f_type == PROC_SUPER_MAGIC || names_a_process(path_of(fd)))
        return true;
    errno = EINVAL;
    return false;
}

// A process that has gone takes its files with it: they can no longer be opened (ENOENT) or read (ESRCH).
// Other entries of /proc lack the files (ENOENT) or are no directories.
int as_psinfo_error(int process_fd, int error) {
    if (error == ENOTDIR || error == EISDIR)
        return EINVAL;
    if (error != ENOENT)
        return error;
    const std::string path = path_of(process_fd);
    const std::size_t name = path.rfind('/') + 1;
    return name < path.size() && path[name] >= '1' && path[name] <= '9' ? ESRCH : EINVAL;
}

} // namespace

int sysv_psinfo(int process_fd, struct sysv_psinfo *info) {
    return hostadm::base::errno_at_boundary(-1, [&] {
        if (info == nullptr) {
            errno = EINVAL;
            return -1;
        }
        struct sysv_psinfo found {};
        if (!is_in_process_table(process_fd))
            return -1;
        if (!hostadm::platform::read_process(process_fd, found)) {
            errno = as_psinfo_error(process_fd, errno);
            return -1;
        }
        *info = found;
        return 0;
    });
}
