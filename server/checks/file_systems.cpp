// SPDX-License-Identifier: MIT
#include "server/checks/file_systems.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

#include "base/mounts.hpp"

namespace hostadm::server {

std::vector<Mount> read_mounts() {
    std::vector<Mount> mounts;
    try {
        for (const base::Mount &one : base::all_mounts())
            mounts.push_back(
                {one.point, one.type, one.source,
                 base::has_option(one.options, "ro") || base::has_option(one.system_options, "ro")});
    } catch (const std::system_error &) {
        // Without a table of mounts no check of it finds anything.
    }
    return mounts;
}

const Mount *mount_of(const std::vector<Mount> &mounts, const std::string &path) {
    const Mount *best = nullptr;
    for (const Mount &mount : mounts)
        if (base::is_within(path, mount.point) &&
            (best == nullptr || mount.point.size() >= best->point.size()))
            best = &mount;
    return best;
}

Room room_at(const std::string &path) {
    struct statvfs file_system {};
    if (statvfs(path.c_str(), &file_system) != 0)
        return {};
    return {static_cast<std::uint64_t>(file_system.f_bavail) * file_system.f_frsize,
            file_system.f_files == 0 || file_system.f_ffree > 0, file_system.f_blocks > 0};
}

RootView::RootView(const std::string &directory)
    : directory_(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
    if (!directory_.is_open() || fstat(directory_.get(), &own_) != 0)
        error_ = errno;
}

base::Descriptor RootView::open(const std::string &path, int flags) const {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    return base::Descriptor(
        static_cast<int>(syscall(SYS_openat2, directory_.get(), path.c_str(), &how, sizeof how)));
}

std::optional<struct stat> RootView::look(const std::string &path, bool follow) const {
    const base::Descriptor file = open(path, O_PATH | (follow ? 0 : O_NOFOLLOW));
    struct stat found {};
    if (!file.is_open() || fstat(file.get(), &found) != 0)
        return std::nullopt;
    return found;
}

// What it is must be known before it is opened to be read: opening a device or a pipe may do something. The
// descriptor that was looked at is opened again, not the name.
std::optional<std::string> RootView::read(const std::string &path, std::size_t limit) const {
    const base::Descriptor file = open(path, O_PATH);
    struct stat found {};
    if (!file.is_open() || fstat(file.get(), &found) != 0)
        return std::nullopt;
    if (!S_ISREG(found.st_mode)) {
        errno = EINVAL;
        return std::nullopt;
    }
    const base::Descriptor stream(::open(("/proc/self/fd/" + std::to_string(file.get())).c_str(),
                                         O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!stream.is_open())
        return std::nullopt;
    std::string text(limit, '\0');
    std::size_t size = 0;
    for (ssize_t got = 1; got > 0 && size < limit;
         size += static_cast<std::size_t>(std::max<ssize_t>(got, 0)))
        got = ::read(stream.get(), text.data() + size, limit - size);
    text.resize(size);
    return text;
}

std::vector<std::string> RootView::names_in(const std::string &path, std::size_t limit) const {
    std::vector<std::string> names;
    base::Descriptor folder = open(path, O_RDONLY | O_DIRECTORY | O_NONBLOCK);
    if (!folder.is_open())
        return names;
    const std::unique_ptr<DIR, int (*)(DIR *)> entries(fdopendir(folder.get()), closedir);
    if (entries == nullptr)
        return names;
    folder.release();
    while (names.size() < limit) {
        const dirent *entry = readdir(entries.get());
        if (entry == nullptr)
            break;
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    return names;
}

std::string RootView::target_of(const std::string &path) const {
    const base::Descriptor link = open(path, O_PATH | O_NOFOLLOW);
    char target[PATH_MAX];
    const ssize_t size = link.is_open() ? readlinkat(link.get(), "", target, sizeof target) : -1;
    return size < 0 ? "" : std::string(target, static_cast<std::size_t>(size));
}

} // namespace hostadm::server
