// SPDX-License-Identifier: MIT
#include "sandbox/tree.hpp"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "base/owners.hpp"
#include "base/translation.hpp"

namespace hostadm::sandbox {

namespace {

std::string joined(const std::string &directory, const std::string &name) {
    return directory == "/" ? directory + name : directory + '/' + name;
}

std::pair<std::string, std::string> split(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

void write_all(int fd, const char *data, std::size_t size, const std::string &path) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0)
            fail(base::tr("write {1}", path));
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

// A new, empty file in place of what stands there.
Descriptor fresh_file(int root, const std::string &path) {
    const auto [directory, name] = split(path);
    const Descriptor parent = make_directories(root, directory);
    if (unlinkat(parent.get(), name.c_str(), 0) != 0 && errno != ENOENT)
        fail(base::tr("replace {1}", path));
    Descriptor file(openat(parent.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.is_open())
        fail(base::tr("make {1}", path));
    return file;
}

void take_over_attributes(int fd, const struct stat &status, const std::string &path) {
    const timespec times[2] = {status.st_atim, status.st_mtim};
    if (fchown(fd, status.st_uid, status.st_gid) != 0 || fchmod(fd, status.st_mode & 07777) != 0 ||
        futimens(fd, times) != 0)
        fail(base::tr("set owner, mode and times of {1}", path));
}

void copy_content(int source, int target, const std::string &path) {
    std::array<char, 65536> buffer;
    ssize_t size;
    while ((size = read(source, buffer.data(), buffer.size())) > 0)
        write_all(target, buffer.data(), static_cast<std::size_t>(size), path);
    if (size < 0)
        fail(base::tr("read {1}", path));
}

void copy_link(int directory, const std::string &name, int root, const std::string &path) {
    std::array<char, 4096> target;
    const ssize_t size = readlinkat(directory, name.c_str(), target.data(), target.size() - 1);
    if (size < 0)
        fail(base::tr("read the link {1}", path));
    target[static_cast<std::size_t>(size)] = '\0';
    const auto [parent_path, base] = split(path);
    const Descriptor parent = make_directories(root, parent_path);
    if ((unlinkat(parent.get(), base.c_str(), 0) != 0 && errno != ENOENT) ||
        symlinkat(target.data(), parent.get(), base.c_str()) != 0)
        fail(base::tr("make the link {1}", path));
}

void copy_directory(int source, const struct stat &status, int root, const std::string &path) {
    Descriptor target = open_inside(root, path, O_RDONLY | O_DIRECTORY);
    if (!target.is_open()) {
        target = make_directories(root, path);
        take_over_attributes(target.get(), status, path);
    }
    target.reset();
    copy_over(source, root, path);
}

void copy_entry(int directory, const std::string &name, int root, const std::string &path) {
    struct stat status;
    if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        fail(base::tr("look at {1}", path));
    if (S_ISLNK(status.st_mode)) {
        copy_link(directory, name, root, path);
        return;
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        errno = EINVAL;
        fail(base::tr("copy the special file {1}", path));
    }
    const Descriptor source(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!source.is_open())
        fail(base::tr("open {1}", path));
    if (S_ISDIR(status.st_mode))
        copy_directory(source.get(), status, root, path);
    else
        replace_with_copy(source.get(), root, path);
}

} // namespace

void fail(const std::string &step) {
    throw Error(Error::Kind::setup, errno, step);
}

Descriptor open_inside(int root, const std::string &path, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags) | O_CLOEXEC;
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    return Descriptor(static_cast<int>(syscall(SYS_openat2, root, path.c_str(), &how, sizeof how)));
}

Descriptor make_directories(int root, const std::string &path) {
    Descriptor directory = open_inside(root, path, O_RDONLY | O_DIRECTORY);
    if (directory.is_open())
        return directory;
    if (errno != ENOENT || path == "/" || path.empty())
        fail(base::tr("open {1}", path));
    const auto [parent_path, name] = split(path);
    const Descriptor parent = make_directories(root, parent_path);
    if (mkdirat(parent.get(), name.c_str(), 0755) != 0)
        fail(base::tr("make the directory {1}", path));
    directory = open_inside(root, path, O_RDONLY | O_DIRECTORY);
    if (!directory.is_open())
        fail(base::tr("open {1}", path));
    return directory;
}

std::vector<std::string> entries_of(int directory) {
    Descriptor own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const base::Directory stream(own.is_open() ? fdopendir(own.get()) : nullptr);
    if (!stream)
        fail(base::tr("open a directory"));
    own.release();
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = readdir(stream.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    if (errno != 0)
        fail(base::tr("read a directory"));
    std::sort(names.begin(), names.end());
    return names;
}

void copy_over(int source, int root, const std::string &path) {
    for (const std::string &name : entries_of(source))
        copy_entry(source, name, root, joined(path, name));
}

void replace_with_copy(int source, int root, const std::string &path) {
    struct stat status;
    if (fstat(source, &status) != 0)
        fail(base::tr("look at {1}", path));
    const Descriptor target = fresh_file(root, path);
    copy_content(source, target.get(), path);
    take_over_attributes(target.get(), status, path);
}

void place(const PlacedFile &file, int root) {
    const Descriptor target = fresh_file(root, file.path);
    write_all(target.get(), file.content.data(), file.content.size(), file.path);
    if (fchmod(target.get(), file.mode) != 0)
        fail(base::tr("set the mode of {1}", file.path));
}

} // namespace hostadm::sandbox
