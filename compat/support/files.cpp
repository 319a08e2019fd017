// SPDX-License-Identifier: MIT
#include "compat/support/files.hpp"

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/files.hpp"
#include "base/translation.hpp"
#include "compat/support/failure.hpp"

namespace compat {

using hostadm::base::Descriptor;

std::optional<std::string> read_file(const std::string &path) {
    hostadm::base::FileText file = hostadm::base::read_file(path);
    if (file.is_missing())
        return std::nullopt;
    if (!file)
        fail_with_errno(hostadm::base::tr("cannot read {1}", path), file.error);
    return std::move(file.text);
}

// Always under the same name beside it, so that the next run writes over what one that was killed has left.
void replace_file(const std::string &path, std::string_view text) {
    const size_t slash = path.rfind('/');
    const std::string fresh = path.substr(0, slash) + "/." + path.substr(slash + 1) + ".new";
    unlink(fresh.c_str());
    try {
        Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file)
            fail_with_errno(hostadm::base::tr("cannot write {1}", fresh));
        write_all(file, text, fresh);
        if (fchmod(file.get(), 0644) != 0 || fsync(file.get()) != 0)
            fail_with_errno(hostadm::base::tr("cannot write {1}", fresh));
        if (rename(fresh.c_str(), path.c_str()) != 0)
            fail_with_errno(hostadm::base::tr("cannot replace {1}", path));
    } catch (...) {
        unlink(fresh.c_str());
        throw;
    }
    const Descriptor folder(open(path.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || fsync(folder.get()) != 0)
        fail_with_errno(hostadm::base::tr("cannot write {1}", path));
}

void make_directories(const std::string &path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error)
        fail_with_errno(hostadm::base::tr("cannot make {1}", path), error.value());
}

void write_all(const Descriptor &file, std::string_view text, const std::string &path) {
    if (!hostadm::base::write_all(file.get(), text))
        fail_with_errno(hostadm::base::tr("cannot write {1}", path));
}

std::optional<FileLock> FileLock::try_take(const std::string &path) {
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        fail_with_errno(hostadm::base::tr("cannot lock {1}", path));
    if (flock(file.get(), LOCK_EX | LOCK_NB) == 0)
        return FileLock(std::move(file));
    if (errno != EWOULDBLOCK && errno != EINTR)
        fail_with_errno(hostadm::base::tr("cannot lock {1}", path));
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
            throw Failure(hostadm::base::tr("another process has held {1} for {2} seconds", path,
                                            patience.count() / 1000));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void FileLock::hand_over(int number) {
    if (descriptor_.get() == number ? fcntl(number, F_SETFD, 0) != 0 : dup2(descriptor_.get(), number) < 0)
        fail_with_errno(hostadm::base::tr("cannot keep the lock"));
    if (descriptor_.get() != number)
        descriptor_ = Descriptor(number);
}

} // namespace compat
