// SPDX-License-Identifier: MIT
#include "compat/support/file.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace compat {

void fail_with_errno(const std::string &what) {
    const int error = errno;
    throw Failure(what + ": " + std::strerror(error));
}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    if (this != &other) {
        reset();
        number_ = std::exchange(other.number_, -1);
    }
    return *this;
}

void Descriptor::reset() {
    if (number_ >= 0)
        close(number_);
    number_ = -1;
}

std::string read_all(int descriptor, const std::string &path) {
    std::string text;
    char piece[65536];
    for (;;) {
        const ssize_t count = read(descriptor, piece, sizeof piece);
        if (count == 0)
            return text;
        if (count > 0)
            text.append(piece, static_cast<size_t>(count));
        else if (errno != EINTR)
            fail_with_errno("cannot read " + path);
    }
}

void write_all(int descriptor, std::string_view text, const std::string &path) {
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count >= 0)
            text.remove_prefix(static_cast<size_t>(count));
        else if (errno != EINTR)
            fail_with_errno("cannot write " + path);
    }
}

std::optional<std::string> read_file(const std::string &path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        if (errno == ENOENT)
            return std::nullopt;
        fail_with_errno("cannot read " + path);
    }
    return read_all(file.get(), path);
}

void replace_file(const std::string &path, std::string_view text, mode_t mode) {
    const size_t slash = path.rfind('/');
    const std::string directory = path.substr(0, slash);
    const std::string fresh = directory + "/." + path.substr(slash + 1) + ".new";
    unlink(fresh.c_str());
    Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file)
        fail_with_errno("cannot write " + fresh);
    try {
        write_all(file.get(), text, fresh);
        if (fchmod(file.get(), mode) != 0 || fsync(file.get()) != 0)
            fail_with_errno("cannot write " + fresh);
        if (rename(fresh.c_str(), path.c_str()) != 0)
            fail_with_errno("cannot replace " + path);
    } catch (...) {
        unlink(fresh.c_str());
        throw;
    }
    const Descriptor folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder)
        fsync(folder.get());
}

void make_directories(const std::string &path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error)
        throw Failure("cannot make " + path + ": " + error.message());
}

std::optional<FileLock> FileLock::try_take(const std::string &path) {
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        fail_with_errno("cannot lock " + path);
    if (flock(file.get(), LOCK_EX | LOCK_NB) == 0)
        return FileLock(std::move(file));
    if (errno != EWOULDBLOCK && errno != EINTR)
        fail_with_errno("cannot lock " + path);
    return std::nullopt;
}

FileLock::FileLock(const std::string &path, std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        if (auto lock = try_take(path)) {
            descriptor_ = std::move(lock->descriptor_);
            return;
        }
        if (std::chrono::steady_clock::now() >= end)
            throw Failure("another process has held " + path + " for " +
                          std::to_string(patience.count() / 1000) + " seconds");
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void FileLock::hand_over(int number) {
    if (descriptor_.get() == number ? fcntl(number, F_SETFD, 0) != 0 : dup2(descriptor_.get(), number) < 0)
        fail_with_errno("cannot keep the lock");
    if (descriptor_.get() != number)
        descriptor_ = Descriptor(number);
}

std::vector<pid_t> processes_named(std::string_view name) {
    std::vector<pid_t> found;
    struct stat ours = {};
    if (stat("/", &ours) != 0)
        return found;
    DIR *const directory = opendir("/proc");
    if (directory == nullptr)
        fail_with_errno("cannot read /proc");
    while (const dirent *const entry = readdir(directory)) {
        if (!std::isdigit(static_cast<unsigned char>(entry->d_name[0])))
            continue;
        const std::string process = std::string("/proc/") + entry->d_name;
        const Descriptor file(open((process + "/comm").c_str(), O_RDONLY | O_CLOEXEC));
        char comm[32];
        const ssize_t count = file ? read(file.get(), comm, sizeof comm) : -1;
        struct stat root = {};
        if (count > 0 && std::string_view(comm, static_cast<size_t>(count) - 1) == name &&
            stat((process + "/root/").c_str(), &root) == 0 && root.st_dev == ours.st_dev &&
            root.st_ino == ours.st_ino)
            found.push_back(static_cast<pid_t>(std::stol(entry->d_name)));
    }
    closedir(directory);
    std::sort(found.begin(), found.end());
    return found;
}

Outcome run(const std::vector<std::string> &words) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail_with_errno("cannot make a pipe");
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, writing.get(), 1);
    posix_spawn_file_actions_adddup2(&actions, writing.get(), 2);
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        return {127, words[0] + ": " + std::strerror(error)};

    writing.reset();
    Outcome outcome;
    outcome.output = read_all(reading.get(), words[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    for (;;) {
        const size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

void print_complaint(const char *name, const std::string &text) {
    std::fprintf(stderr, "%s: %s\n", name, text.c_str());
}

} // namespace compat
