// SPDX-License-Identifier: MIT
#include "rehearsal/nfs.hpp"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "base/translation.hpp"
// Behind the system's headers, which it does not include itself.
#include <nfsc/libnfs.h>

namespace hostadm::rehearsal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto patience = std::chrono::milliseconds(3000);
constexpr int most_links = 40;

struct Waiting {
    bool done = false;
    int status = 0;
    std::string error = {};
    std::function<void(int, void *)> take = {};
};

void finished(int status, nfs_context *, void *data, void *of) {
    auto &waiting = *static_cast<Waiting *>(of);
    waiting.done = true;
    waiting.status = status;
    if (status < 0)
        waiting.error = data == nullptr ? "" : static_cast<const char *>(data);
    else if (waiting.take)
        waiting.take(status, data);
}

std::deque<std::string> parts_of(const std::string &path) {
    std::deque<std::string> parts;
    for (std::size_t begin = 0; begin < path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin)
            parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

} // namespace

struct NfsDirectory::Context {
    nfs_context *nfs = nfs_init_context();
    Context() = default;
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
    ~Context() {
        if (nfs != nullptr)
            nfs_destroy_context(nfs);
    }

    [[noreturn]] void fail(int error, std::string text) const {
        if (text.empty())
            text = std::strerror(error);
        // The library begins with the name of its own function.
        if (const std::size_t cut = text.find("failed with "); cut != text.npos)
            text.erase(0, cut + std::strlen("failed with "));
        throw NfsFailure(error, text);
    }

    // Starts an operation and waits for its end; the status when it is none of a failure.
    int wait(const std::function<int(nfs_cb, void *)> &start,
             std::function<void(int, void *)> take = {}) const {
        if (nfs == nullptr)
            fail(ENOMEM, "");
        Waiting waiting{.take = std::move(take)};
        if (start(finished, &waiting) < 0)
            fail(EIO, nfs_get_error(nfs));
        const auto end = Clock::now() + patience;
        while (!waiting.done) {
            pollfd wire{nfs_get_fd(nfs), static_cast<short>(nfs_which_events(nfs)), 0};
            if (Clock::now() >= end)
                fail(ETIMEDOUT, base::tr("no answer"));
            if (poll(&wire, 1, 50) < 0 && errno != EINTR)
                fail(errno, "");
            if (nfs_service(nfs, wire.revents) < 0 && !waiting.done)
                fail(EIO, nfs_get_error(nfs));
        }
        if (waiting.status < 0)
            fail(-waiting.status, waiting.error);
        return waiting.status;
    }
};

NfsDirectory::NfsDirectory(const std::string &server, const std::string &path)
    : context_(std::make_unique<Context>()) {
    nfs_context *nfs = context_->nfs;
    if (nfs != nullptr) {
        nfs_set_uid(nfs, 0);
        nfs_set_gid(nfs, 0);
        nfs_set_version(nfs, 3);
        nfs_set_autoreconnect(nfs, 0);
        nfs_set_timeout(nfs, static_cast<int>(patience.count()));
    }
    context_->wait(
        [&](nfs_cb done, void *of) { return nfs_mount_async(nfs, server.c_str(), path.c_str(), done, of); });
}

NfsDirectory::~NfsDirectory() = default;
NfsDirectory::NfsDirectory(NfsDirectory &&) noexcept = default;
NfsDirectory &NfsDirectory::operator=(NfsDirectory &&) noexcept = default;

NfsFile NfsDirectory::look(const std::string &path) {
    NfsFile file;
    context_->wait(
        [&](nfs_cb done, void *of) { return nfs_lstat64_async(context_->nfs, path.c_str(), done, of); },
        [&](int, void *data) {
            const auto &found = *static_cast<const nfs_stat_64 *>(data);
            file = {static_cast<std::uint32_t>(found.nfs_mode), static_cast<std::uint32_t>(found.nfs_uid),
                    found.nfs_size, found.nfs_rdev};
        });
    return file;
}

std::optional<std::string> NfsDirectory::resolved(const std::string &path) {
    std::deque<std::string> left = parts_of(path);
    std::vector<std::string> done;
    const auto joined = [&] {
        std::string all;
        for (const std::string &part : done)
            all += '/' + part;
        return all.empty() ? std::string("/") : all;
    };
    int links = 0;
    while (!left.empty()) {
        const std::string part = left.front();
        left.pop_front();
        if (part == ".")
            continue;
        if (part == "..") {
            if (!done.empty())
                done.pop_back();
            continue;
        }
        done.push_back(part);
        NfsFile file;
        try {
            file = look(joined());
        } catch (const NfsFailure &failure) {
            if (failure.error == ENOENT || failure.error == ENOTDIR)
                return std::nullopt;
            throw;
        }
        if (!S_ISLNK(file.mode))
            continue;
        if (++links > most_links)
            throw NfsFailure(ELOOP, std::strerror(ELOOP));
        std::string target;
        context_->wait(
            [&, at = joined()](nfs_cb call, void *of) {
                return nfs_readlink_async(context_->nfs, at.c_str(), call, of);
            },
            [&](int, void *data) { target = static_cast<const char *>(data); });
        if (target.starts_with('/'))
            done.clear();
        else
            done.pop_back();
        const std::deque<std::string> more = parts_of(target);
        left.insert(left.begin(), more.begin(), more.end());
    }
    return joined();
}

namespace {

// An open file, closed in the end. The closing asks the server nothing.
class OpenFile {
public:
    OpenFile(nfs_context *nfs, nfsfh *file) : nfs_(nfs), file_(file) {}
    ~OpenFile() {
        Waiting waiting;
        if (nfs_close_async(nfs_, file_, finished, &waiting) < 0)
            return;
        for (int tries = 0; !waiting.done && tries < 100; ++tries) {
            pollfd wire{nfs_get_fd(nfs_), static_cast<short>(nfs_which_events(nfs_)), 0};
            poll(&wire, 1, 10);
            if (nfs_service(nfs_, wire.revents) < 0)
                break;
        }
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
    nfsfh *get() const { return file_; }

private:
    nfs_context *nfs_;
    nfsfh *file_;
};

} // namespace

std::string NfsDirectory::read(const std::string &path, std::size_t at_most) {
    nfs_context *nfs = context_->nfs;
    nfsfh *opened = nullptr;
    context_->wait(
        [&](nfs_cb done, void *of) { return nfs_open_async(nfs, path.c_str(), O_RDONLY, done, of); },
        [&](int, void *data) { opened = static_cast<nfsfh *>(data); });
    const OpenFile file(nfs, opened);
    std::string content;
    while (content.size() < at_most) {
        std::string block;
        constexpr std::size_t block_size = 8192; // as small as old clients ask for
        const int length = context_->wait(
            [&](nfs_cb done, void *of) {
                return nfs_pread_async(nfs, file.get(), content.size(),
                                       std::min(block_size, at_most - content.size()), done, of);
            },
            [&](int size, void *data) {
                block.assign(static_cast<const char *>(data), static_cast<std::size_t>(size));
            });
        if (length == 0)
            break;
        content += block;
    }
    return content;
}

NfsFile NfsDirectory::try_writing(const std::string &path, const std::string &content) {
    nfs_context *nfs = context_->nfs;
    {
        nfsfh *made = nullptr;
        context_->wait(
            [&](nfs_cb done, void *of) { return nfs_creat_async(nfs, path.c_str(), 0600, done, of); },
            [&](int, void *data) { made = static_cast<nfsfh *>(data); });
        const OpenFile file(nfs, made);
        context_->wait([&](nfs_cb done, void *of) {
            return nfs_pwrite_async(nfs, file.get(), 0, content.size(), content.data(), done, of);
        });
    }
    const NfsFile written = look(path);
    const std::string back = read(path, content.size() + 1);
    context_->wait([&](nfs_cb done, void *of) { return nfs_unlink_async(nfs, path.c_str(), done, of); });
    if (back != content)
        throw NfsFailure(EIO, base::tr("what was written is not what is read back"));
    return written;
}

void NfsDirectory::write_into(const std::string &path, const std::string &content) {
    nfs_context *nfs = context_->nfs;
    nfsfh *opened = nullptr;
    context_->wait([&](nfs_cb done, void *of) { return nfs_open_async(nfs, path.c_str(), O_RDWR, done, of); },
                   [&](int, void *data) { opened = static_cast<nfsfh *>(data); });
    const OpenFile file(nfs, opened);
    context_->wait([&](nfs_cb done, void *of) {
        return nfs_pwrite_async(nfs, file.get(), 0, content.size(), content.data(), done, of);
    });
}

bool NfsDirectory::may_write(const std::string &path) {
    try {
        context_->wait([&](nfs_cb done, void *of) {
            return nfs_access_async(context_->nfs, path.c_str(), W_OK, done, of);
        });
        return true;
    } catch (const NfsFailure &failure) {
        if (failure.error == EACCES || failure.error == EPERM || failure.error == EROFS)
            return false;
        throw;
    }
}

} // namespace hostadm::rehearsal
