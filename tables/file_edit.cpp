// SPDX-License-Identifier: MIT
// Lock, read, change, write: the edit of one text file as a whole.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "base/descriptor.hpp"
#include "base/extended_attributes.hpp"
#include "hostadm/table_edit.hpp"
#include "tables/failure.hpp"
#include "tables/lock.hpp"

namespace hostadm::tables {

using base::Descriptor;

namespace {

// One name for all: whoever holds the folder's lock is the only editor in it, so a file of this name is his
// own or a leftover of one who was killed.
constexpr const char *fresh_name = ".hostadm-new-table";
constexpr mode_t new_table_mode = 0644;
constexpr mode_t new_folder_mode = 0755;

// Where a table really is, its links followed.
struct Place {
    Descriptor folder;
    Descriptor lock; // once it is held
    std::string folder_path;
    std::string name;
};

Descriptor open_folder(const std::string &path) {
    return Descriptor(complete([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

// What a symbolic link holds; nothing when the name is no link or does not exist.
std::optional<std::string> link_target(int folder, const std::string &name) {
    std::string target(PATH_MAX, '\0');
    for (;;) {
        const ssize_t length = readlinkat(folder, name.c_str(), target.data(), target.size());
        if (length >= 0) {
            if (static_cast<std::size_t>(length) == target.size())
                throw Failure{-ENAMETOOLONG};
            target.resize(static_cast<std::size_t>(length));
            return target;
        }
        if (errno == EINVAL || errno == ENOENT)
            return std::nullopt;
        if (errno != EINTR)
            throw Failure{-errno};
    }
}

std::string folder_of(const std::string &path, std::size_t slash) {
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// A folder made for the table that is to stand in it. It goes again when the edit fails.
class NewFolder {
public:
    NewFolder() = default;
    ~NewFolder() {
        if (!path_.empty())
            rmdir(path_.c_str());
    }
    NewFolder(const NewFolder &) = delete;
    NewFolder &operator=(const NewFolder &) = delete;

    void make(const std::string &path) {
        try {
            complete([&] { return mkdir(path.c_str(), new_folder_mode); });
        } catch (const Failure &failure) {
            if (failure.status != -EEXIST) // another editor was faster; then it is his
                throw;
            return;
        }
        path_ = path;
        complete([&] { return chmod(path.c_str(), new_folder_mode); });
        const Descriptor parent = open_folder(path + "/..");
        complete([&] { return fsync(parent.get()); });
    }
    void keep() { path_.clear(); }

private:
    std::string path_;
};

// Another editor who has made the folder may give up and take it away again before it is opened here.
Descriptor open_or_make_folder(const std::string &path, NewFolder *new_folder) {
    constexpr int most_tries = 100; // a link that leads nowhere is never made
    for (int tries = 1;; ++tries) {
        try {
            return open_folder(path);
        } catch (const Failure &failure) {
            if (failure.status != -ENOENT || new_folder == nullptr || tries == most_tries)
                throw;
        }
        new_folder->make(path);
    }
}

Place find_place(std::string path, NewFolder *new_folder) {
    constexpr int most_links = 40;
    for (int links = 0; links <= most_links; ++links) {
        const std::size_t slash = path.rfind('/');
        Place place{{}, {}, folder_of(path, slash), path.substr(slash + 1)};
        if (place.name.empty() || place.name == "." || place.name == "..")
            throw Failure{-EISDIR};
        place.folder = open_or_make_folder(place.folder_path, new_folder);
        const std::optional<std::string> target = link_target(place.folder.get(), place.name);
        if (!target)
            return place;
        path = target->front() == '/' ? *target : place.folder_path + "/" + *target;
    }
    throw Failure{-ELOOP};
}

bool same_folder(const Place &one, const Place &other) {
    struct stat first, second;
    complete([&] { return fstat(one.folder.get(), &first); });
    complete([&] { return fstat(other.folder.get(), &second); });
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// The table's place with its folder locked. While we waited the
// table may have moved elsewhere; then the lock is the wrong one.
Place lock_place(const std::string &path, NewFolder *new_folder, Clock::time_point deadline) {
    for (;;) {
        Place place = find_place(path, new_folder);
        place.lock = lock(place.folder.get(), deadline);
        const Place now = find_place(path, new_folder);
        if (now.name == place.name && same_folder(now, place))
            return place;
    }
}

// A table as it was read.
struct Snapshot {
    Descriptor file; // none when the table does not exist
    struct stat info {};
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;

    bool exists() const { return file.get() >= 0; }
    std::string_view text() const { return {bytes.get(), size}; }
};

// What stands at a name: false when nothing does.
bool status_at(int folder, const std::string &name, struct stat &info) {
    for (;;) {
        if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0)
            return true;
        if (errno == ENOENT)
            return false;
        if (errno != EINTR)
            throw Failure{-errno};
    }
}

void require_regular(const struct stat &info) {
    if (S_ISDIR(info.st_mode))
        throw Failure{-EISDIR};
    if (!S_ISREG(info.st_mode))
        throw Failure{-ENOTSUP};
}

void read_all(Snapshot &table) {
    std::size_t capacity = static_cast<std::size_t>(table.info.st_size) + 1;
    table.bytes = std::make_unique_for_overwrite<char[]>(capacity);
    for (;;) {
        if (table.size == capacity) { // it has grown since
            auto larger = std::make_unique_for_overwrite<char[]>(2 * capacity);
            std::copy_n(table.bytes.get(), table.size, larger.get());
            table.bytes = std::move(larger);
            capacity *= 2;
        }
        const ssize_t count = complete(
            [&] { return read(table.file.get(), table.bytes.get() + table.size, capacity - table.size); });
        if (count == 0)
            return;
        table.size += static_cast<std::size_t>(count);
    }
}

// The type is looked at before the file is opened: opening a device can already do something to it.
Snapshot read_table(int folder, const std::string &name) {
    Snapshot table;
    if (!status_at(folder, name, table.info))
        return table;
    require_regular(table.info);
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    table.file = Descriptor(complete([&] { return openat(folder, name.c_str(), flags); }));
    complete([&] { return fstat(table.file.get(), &table.info); });
    require_regular(table.info);
    read_all(table);
    return table;
}

// False when somebody who takes no lock has written or replaced the table since it was read.
bool unchanged_since(const Snapshot &table, int folder, const std::string &name) {
    struct stat now;
    if (!status_at(folder, name, now))
        return !table.exists();
    const auto same_time = [](const timespec &one, const timespec &other) {
        return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
    };
    const struct stat &then = table.info;
    return table.exists() && now.st_dev == then.st_dev && now.st_ino == then.st_ino &&
           now.st_size == then.st_size && same_time(now.st_mtim, then.st_mtim) &&
           same_time(now.st_ctim, then.st_ctim);
}

void write_all(int file, std::vector<iovec> pieces) {
    std::size_t next = 0;
    while (next < pieces.size()) {
        auto written = static_cast<std::size_t>(complete(
            [&] { return writev(file, pieces.data() + next, static_cast<int>(pieces.size() - next)); }));
        for (; next < pieces.size() && written >= pieces[next].iov_len; ++next)
            written -= pieces[next].iov_len;
        if (next < pieces.size()) {
            pieces[next].iov_base = static_cast<char *>(pieces[next].iov_base) + written;
            pieces[next].iov_len -= written;
        }
    }
}

iovec piece(std::string_view text) {
    return {const_cast<char *>(text.data()), text.size()};
}

// Changing the owner clears file capabilities and set-ID bits, so attributes and mode come after it.
void take_over(const struct stat &info, int from, int to) {
    struct stat fresh;
    complete([&] { return fstat(to, &fresh); });
    if (fresh.st_uid != info.st_uid || fresh.st_gid != info.st_gid)
        complete([&] { return fchown(to, info.st_uid, info.st_gid); });
    if (const int error = base::copy_extended_attributes(from, to); error != 0)
        throw Failure{-error};
    complete([&] { return fchmod(to, info.st_mode & 07777); });
}

// The file that is to become the table. It goes again unless it did.
class FreshFile {
public:
    explicit FreshFile(int folder) : folder_(folder) {
        constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        file_ = Descriptor(complete([&] { return openat(folder_, fresh_name, flags, 0600); }));
        // Where a standard descriptor is closed, the file must not take its number: a word printed would go into it.
        if (file_.get() <= STDERR_FILENO)
            file_ =
                Descriptor(complete([&] { return fcntl(file_.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }));
    }
    ~FreshFile() {
        if (!installed_)
            unlinkat(folder_, fresh_name, 0);
    }
    FreshFile(const FreshFile &) = delete;
    FreshFile &operator=(const FreshFile &) = delete;

    int get() const { return file_.get(); }
    void flush() {
        complete([&] { return fsync(file_.get()); });
        // An interrupted close has closed.
        if (const int error = file_.close(); error != 0 && error != EINTR)
            throw Failure{-error};
    }
    void install(const std::string &name) {
        complete([&] { return renameat(folder_, fresh_name, folder_, name.c_str()); });
        installed_ = true;
    }

private:
    int folder_;
    Descriptor file_;
    bool installed_ = false;
};

// While it lives a limit on the size of files is an error, and no signal that ends the process in the middle.
class NoSizeSignal {
public:
    NoSizeSignal() {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGXFSZ) == 1;
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~NoSizeSignal() {
        const timespec now{};
        if (!was_pending_)
            sigtimedwait(&signal_, nullptr, &now);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    NoSizeSignal(const NoSizeSignal &) = delete;
    NoSizeSignal &operator=(const NoSizeSignal &) = delete;

private:
    sigset_t signal_, before_;
    bool was_pending_ = false;
};

// False when the table was written by others meanwhile; then nothing was done.
bool replace_table(const Place &place, const Snapshot &table, const Splice &splice) {
    const int folder = place.folder.get();
    if (table.exists()) // the rename would succeed on a file that this user may not write
        complete([&] { return faccessat(folder, place.name.c_str(), W_OK, AT_EACCESS); });

    FreshFile fresh(folder);
    const std::string_view text = table.text();
    const NoSizeSignal limit_is_a_failure;
    write_all(fresh.get(), {piece(text.substr(0, splice.begin)), piece(splice.replacement),
                            piece(text.substr(splice.begin + splice.length))});
    if (table.exists())
        take_over(table.info, table.file.get(), fresh.get());
    else
        complete([&] { return fchmod(fresh.get(), new_table_mode); });
    fresh.flush();
    if (!unchanged_since(table, folder, place.name))
        return false;
    fresh.install(place.name);
    return true;
}

void edit(const std::string &path,
          const std::function<int(std::string_view, std::optional<Splice> &)> &change,
          const Options &options) {
    constexpr int most_attempts = 20;
    Place place;
    NewFolder new_folder; // goes before the lock does, or it would go under the next editor's feet
    place = lock_place(path, options.create ? &new_folder : nullptr, Clock::now() + options.patience);
    unlinkat(place.folder.get(), fresh_name, 0); // of an editor who was killed

    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        const Snapshot table = read_table(place.folder.get(), place.name);
        if (!table.exists() && !options.create)
            throw Failure{-ENOENT};
        std::optional<Splice> splice;
        if (const int status = change(table.text(), splice); status != 0)
            throw Failure{status};
        if (!splice)
            return;
        if (!replace_table(place, table, *splice))
            continue;
        new_folder.keep();
        // The next editor may start while the folder is flushed: what he reads is complete.
        place.lock.reset();
        complete([&] { return fsync(place.folder.get()); });
        return;
    }
    throw Failure{-EAGAIN};
}

template <typename Work> int status_of(Work work) {
    try {
        work();
        return 0;
    } catch (const Failure &failure) {
        return failure.status;
    } catch (const std::bad_alloc &) { // an exception of the caller's own passes through
        return -ENOMEM;
    }
}

} // namespace

int splice_file(const std::string &path,
                const std::function<int(std::string_view text, std::optional<Splice> &splice)> &change,
                const Options &options) {
    if (path.empty())
        return -EINVAL;
    return status_of([&] { edit(path, change, options); });
}

int edit_file(const std::string &path, const std::function<int(std::string &text)> &change,
              const Options &options) {
    const auto change_text = [&](std::string_view text, std::optional<Splice> &splice) {
        std::string edited(text);
        const int status = change(edited);
        if (status == 0 && edited != text)
            splice = Splice{0, text.size(), std::move(edited)};
        return status;
    };
    return splice_file(path, change_text, options);
}

int read_file(const std::string &path, std::string &text) {
    if (path.empty())
        return -EINVAL;
    return status_of([&] {
        struct stat info;
        complete([&] { return stat(path.c_str(), &info); });
        require_regular(info);
        const Descriptor file(
            complete([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
        complete([&] { return fstat(file.get(), &info); });
        require_regular(info);
        std::string whole(static_cast<std::size_t>(info.st_size) + 1, '\0');
        std::size_t size = 0;
        while (const ssize_t count =
                   complete([&] { return read(file.get(), whole.data() + size, whole.size() - size); })) {
            size += static_cast<std::size_t>(count);
            if (size == whole.size()) // it has grown since
                whole.resize(2 * size);
        }
        whole.resize(size);
        text = std::move(whole);
    });
}

FolderLock::FolderLock(const std::string &folder, std::chrono::milliseconds patience) {
    status_ = status_of([&] { held_ = lock(open_folder(folder).get(), Clock::now() + patience).release(); });
}

FolderLock::~FolderLock() {
    if (held_ >= 0)
        close(held_);
}

} // namespace hostadm::tables
