// SPDX-License-Identifier: MIT
#include "base/beneath.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/extended_attributes.hpp"
#include "base/translation.hpp"

namespace hostadm::base {

namespace {

constexpr int tries = 100; // against somebody who keeps taking names or moving directories

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

// Null and errno when it is not open, or cannot be read.
DirectoryStream entries_of(Descriptor directory) {
    DirectoryStream entries(directory.is_open() ? fdopendir(directory.get()) : nullptr);
    if (entries)
        directory.release();
    return entries;
}

std::string in_words(int error) {
    switch (error) {
    case ELOOP:
        return base::tr("a symbolic link stands there or leads there");
    case EXDEV:
        return base::tr("it leads out of the directory, or something is mounted there");
    default:
        return std::strerror(error);
    }
}

std::string kind_of(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFLNK:
        return base::tr("a symbolic link");
    case S_IFDIR:
        return tr("a directory");
    case S_IFIFO:
        return tr("a fifo");
    case S_IFSOCK:
        return tr("a socket");
    case S_IFBLK:
    case S_IFCHR:
        return tr("a device");
    default:
        return base::tr("no regular file");
    }
}

// A path of the process's own that leads to a descriptor, also to one that is open only as a place.
std::string own_path(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

int open_beneath(int directory, const char *path, std::uint64_t flags, std::uint64_t resolve) {
    open_how how{};
    how.flags = flags | O_CLOEXEC;
    how.resolve = resolve | RESOLVE_NO_MAGICLINKS;
    for (int i = 0; i < tries; ++i) {
        const long descriptor = syscall(SYS_openat2, directory, path, &how, sizeof how);
        if (descriptor >= 0 || (errno != EAGAIN && errno != EINTR))
            return static_cast<int>(descriptor);
    }
    return -1;
}

// Below a directory itself, without any link or mount.
int open_directory_in(int parent, const char *name) {
    return open_beneath(parent, name, O_RDONLY | O_DIRECTORY,
                        RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV);
}

bool is_dot_name(std::string_view name) {
    return name == "." || name == "..";
}

std::string random_name() {
    std::uint64_t number = 0;
    while (getrandom(&number, sizeof number, 0) != sizeof number) {
    }
    return ".hostadm." + std::to_string(number);
}

// Where the new NAME is made. Whoever makes it again after a broken run finds what that left.
std::string aside_of(const std::string &name) {
    const std::string aside = ".hostadm-new." + name;
    return aside.size() <= NAME_MAX ? aside : random_name();
}

// Makes the file and locks it, so that nobody else takes it for one that a broken run left behind. Not open
// and errno when it cannot be made; EEXIST when somebody else is at it.
Descriptor make_locked(int parent, const char *name) {
    Descriptor file(openat(parent, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat status {};
    if (!file.is_open() || (flock(file.get(), LOCK_EX | LOCK_NB) == 0 && fstat(file.get(), &status) == 0 &&
                            status.st_nlink == 1))
        return file;
    errno = EEXIST;
    return {};
}

void remove_left(int parent, const char *name) {
    const Descriptor place(open_beneath(parent, name, O_PATH | O_NOFOLLOW,
                                        RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV));
    struct stat status {};
    if (!place.is_open() || fstat(place.get(), &status) != 0)
        return;
    if (S_ISREG(status.st_mode)) {
        const Descriptor file(
            ::open(own_path(place.get()).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (!file.is_open() || flock(file.get(), LOCK_EX | LOCK_NB) != 0)
            return; // it is being written
        unlinkat(parent, name, 0);
        return;
    }
    unlinkat(parent, name, S_ISDIR(status.st_mode) ? AT_REMOVEDIR : 0);
}

// Owner before mode: a change of owner takes away the set-id bits.
int set_attributes_of(int descriptor, Attributes attributes) {
    if (fchownat(descriptor, "", attributes.owner, attributes.group, AT_EMPTY_PATH) != 0)
        return errno;
    if (fchmod(descriptor, attributes.mode & 07777) == 0)
        return 0;
    // Not of one that is open only as a place.
    return errno == EBADF && chmod(own_path(descriptor).c_str(), attributes.mode & 07777) == 0 ? 0 : errno;
}

// Removes what is in a directory, however deep and whoever adds to it meanwhile.
class Removal {
public:
    explicit Removal(int top) : top_(top) {}

    // 0 or errno; where() tells what could not be removed.
    int contents() {
        for (int pass = 0; pass < passes; ++pass) {
            count_ = 0;
            if (const int error = contents_of(top_, 0); error != 0)
                return error;
            if (count_ == 0)
                return 0;
            where_.clear();
        }
        return EBUSY;
    }
    const std::string &where() const { return where_; }

private:
    static constexpr int deepest = 64;    // descriptors that are open at once
    static constexpr int passes = 100000; // each takes directories of one `deepest` out of the way

    int contents_of(int directory, int depth) {
        const DirectoryStream entries = entries_of(Descriptor(open_directory_in(directory, ".")));
        if (!entries)
            return errno;
        for (;;) {
            errno = 0;
            const dirent *entry = readdir(entries.get());
            if (entry == nullptr)
                return errno;
            if (is_dot_name(entry->d_name))
                continue;
            if (const int error = one(directory, entry->d_name, depth); error != 0) {
                where_.insert(0, std::string("/") + entry->d_name);
                return error;
            }
            ++count_;
        }
    }

    int one(int parent, const char *name, int depth) {
        int error = 0;
        for (int i = 0; i < tries; ++i) {
            if (unlinkat(parent, name, 0) == 0 || errno == ENOENT)
                return 0;
            if (errno != EISDIR)
                return errno;
            if (depth == deepest) // out of the depth, to be removed with the next pass
                return renameat(parent, name, top_, random_name().c_str()) == 0 ? 0 : errno;
            const Descriptor child(open_directory_in(parent, name));
            error = child.is_open() ? contents_of(child.get(), depth + 1) : errno;
            // Perhaps something else stands there by now, or something has been added.
            if (error == 0 && unlinkat(parent, name, AT_REMOVEDIR) != 0)
                error = errno;
            if (error == 0 || error == ENOENT)
                return 0;
            if (error != ENOTEMPTY && error != EEXIST && error != ENOTDIR && error != ELOOP)
                return error;
            where_.clear();
        }
        return error;
    }

    int top_;
    long count_ = 0;
    std::string where_;
};

} // namespace

Attributes attributes_of(const struct stat &status) {
    return {.mode = status.st_mode, .owner = status.st_uid, .group = status.st_gid};
}

Beneath::Beneath(const std::string &directory, Links links)
    : directory_(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), path_(directory),
      links_(links) {
    while (path_.size() > 1 && path_.ends_with('/'))
        path_.pop_back();
    if (!directory_.is_open()) {
        const int error = errno;
        throw BeneathError(base::tr("cannot open the directory {1}: {2}", directory, std::strerror(error)),
                           error);
    }
}

Beneath::Beneath(Descriptor directory, std::string path, Links links)
    : directory_(std::move(directory)), path_(std::move(path)), links_(links) {}

std::string Beneath::path_of(std::string_view below) const {
    below.remove_prefix(std::min(below.find_first_not_of('/'), below.size()));
    while (below.ends_with("/.") || (below.size() > 1 && below.ends_with('/')))
        below.remove_suffix(below.ends_with('/') ? 1 : 2);
    return below.empty() || below == "." ? path_ : (path_ == "/" ? "" : path_) + "/" + std::string(below);
}

void Beneath::fail(const char *what, std::string_view below, int error) const {
    throw BeneathError(tr(what, path_of(below)) + ": " + in_words(error), error);
}

// Not open if it fails; throws for nothing but a path that is none.
Descriptor Beneath::open(std::string_view below, std::uint64_t flags, const char *what) const {
    below.remove_prefix(std::min(below.find_first_not_of('/'), below.size()));
    if (below.find('\0') != below.npos)
        fail(what, below, EINVAL);
    const std::uint64_t resolve =
        links_ == Links::inside ? RESOLVE_IN_ROOT : RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const std::string path(below.empty() ? "." : below);
    // To a link that was to be a directory the kernel says only that it is none, unless no link is allowed at
    // all.
    if (links_ == Links::inside || (flags & O_DIRECTORY) == 0)
        flags |= O_NOFOLLOW;
    return Descriptor(open_beneath(directory_.get(), path.c_str(), flags, resolve));
}

Beneath::Place Beneath::place_of(std::string_view below, const char *what) const {
    std::string_view path = below;
    while (path.ends_with('/'))
        path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    const std::string_view name = slash == path.npos ? path : path.substr(slash + 1);
    if (name.empty() || is_dot_name(name) || name.find('\0') != name.npos)
        fail(what, below, EINVAL);
    const std::string_view above = slash == path.npos ? "." : path.substr(0, slash);
    // Links at the end of the way up are links on the way.
    const std::string parent = links_ == Links::inside ? std::string(above) + "/." : std::string(above);
    return {open(parent, O_RDONLY | O_DIRECTORY, what), std::string(name)};
}

std::optional<struct stat> Beneath::status(std::string_view below) const {
    const Descriptor entry = open(below, O_PATH, base::translatable("cannot look at {1}"));
    struct stat status {};
    if (entry.is_open() && fstat(entry.get(), &status) == 0)
        return status;
    if (errno != ENOENT && errno != ENOTDIR)
        fail(base::translatable("cannot look at {1}"), below, errno);
    return std::nullopt;
}

bool Beneath::is_directory(std::string_view below) const {
    const auto found = status(below);
    return found && S_ISDIR(found->st_mode);
}

bool Beneath::is_file(std::string_view below) const {
    const auto found = status(below);
    return found && S_ISREG(found->st_mode);
}

// Looked at before it is opened: to open a device alone may do something.
Descriptor Beneath::open_file(std::string_view below, int access) const {
    const char *const what =
        access == O_RDONLY ? base::translatable("cannot read {1}") : base::translatable("cannot write {1}");
    const Descriptor place = open(below, O_PATH, what);
    struct stat status {};
    if (!place.is_open() || fstat(place.get(), &status) != 0)
        fail(what, below, errno);
    if (!S_ISREG(status.st_mode))
        throw BeneathError(
            access == O_RDONLY
                ? base::tr("cannot read {1}: it is {2}, and only a regular file is read there",
                           path_of(below), kind_of(status.st_mode))
                : base::tr("cannot write {1}: it is {2}, and only a regular file is written there",
                           path_of(below), kind_of(status.st_mode)),
            EINVAL);
    Descriptor file(::open(own_path(place.get()).c_str(), access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.is_open())
        fail(what, below, errno);
    return file;
}

std::string Beneath::read(std::string_view below, std::size_t limit) const {
    const Descriptor file = open_file(below);
    std::string text;
    char piece[65536];
    for (;;) {
        const ssize_t got = ::read(file.get(), piece, sizeof piece);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail(base::translatable("cannot read {1}"), below, errno);
        if (got == 0)
            return text;
        text.append(piece, static_cast<std::size_t>(got));
        if (text.size() > limit)
            throw BeneathError(
                base::tr("cannot read {1}: it is larger than {2} bytes, which such a file never is",
                         path_of(below), limit),
                EFBIG);
    }
}

std::string Beneath::link_target(std::string_view below) const {
    const Descriptor link = open(below, O_PATH, base::translatable("cannot read the link {1}"));
    std::string target(PATH_MAX, '\0');
    const ssize_t size = link.is_open() ? readlinkat(link.get(), "", target.data(), target.size()) : -1;
    if (size < 0)
        fail(base::translatable("cannot read the link {1}"), below, errno);
    target.resize(static_cast<std::size_t>(size));
    return target;
}

std::vector<std::string> Beneath::names(std::string_view below) const {
    const DirectoryStream entries =
        entries_of(open(below, O_RDONLY | O_DIRECTORY, base::translatable("cannot list {1}")));
    if (!entries)
        fail(base::translatable("cannot list {1}"), below, errno);
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(entries.get());
        if (entry == nullptr && errno != 0)
            fail(base::translatable("cannot list {1}"), below, errno);
        if (entry == nullptr)
            break;
        if (!is_dot_name(entry->d_name))
            names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

Beneath Beneath::directory(std::string_view below) const {
    // With links inside, those of the directory below are still meant within this one; so it takes none.
    Descriptor found =
        open(below, O_RDONLY | O_DIRECTORY, base::translatable("cannot open the directory {1}"));
    if (!found.is_open())
        fail(base::translatable("cannot open the directory {1}"), below, errno);
    return {std::move(found), path_of(below), Links::refused};
}

void Beneath::write(std::string_view below, std::string_view text, Attributes attributes) const {
    NewFile file(*this, below);
    file.write(text);
    file.take_place(attributes);
}

void Beneath::rewrite(std::string_view below, std::string_view text) const {
    const auto before = status(below);
    if (!before || !S_ISREG(before->st_mode))
        throw BeneathError(
            before ? base::tr("cannot write {1}: it is {2}", path_of(below), kind_of(before->st_mode))
                   : base::tr("cannot write {1}: {2}", path_of(below), in_words(ENOENT)),
            before ? EINVAL : ENOENT);
    const Descriptor old = open_file(below);
    NewFile file(*this, below);
    file.write(text);
    file.take_place(attributes_of(*before), true, old.get());
}

bool Beneath::make_directory(std::string_view below, Attributes attributes) const {
    constexpr const char *what = base::translatable("cannot make the directory {1}");
    const Place place = place_of(below, what);
    if (!place.parent.is_open())
        fail(what, below, errno);
    const int parent = place.parent.get();
    // It appears with its mode and owner, whenever a run is cut off.
    const std::string aside = aside_of(place.name);
    int error = EEXIST;
    for (int i = 0; i < tries && faccessat(parent, place.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0; ++i) {
        remove_left(parent, aside.c_str());
        if (mkdirat(parent, aside.c_str(), 0700) != 0 && errno != EEXIST)
            fail(what, below, errno);
        const Descriptor fresh(open_directory_in(parent, aside.c_str()));
        error = fresh.is_open() ? set_attributes_of(fresh.get(), attributes) : errno;
        if (error == 0 && renameat2(parent, aside.c_str(), parent, place.name.c_str(), RENAME_NOREPLACE) == 0)
            return true;
        error = error == 0 ? errno : error;
        unlinkat(parent, aside.c_str(), AT_REMOVEDIR);
        if (error != ENOENT) // which says that another run has taken it for one that was left behind
            break;
    }
    if (error != EEXIST)
        fail(what, below, error);
    if (!Descriptor(open_directory_in(parent, place.name.c_str())).is_open())
        fail(what, below, errno);
    return false;
}

bool Beneath::make_directories(std::string_view below, Attributes attributes) const {
    bool made = false;
    for (std::size_t slash = below.find_first_not_of('/'); slash < below.size();) {
        slash = std::min(below.find('/', slash), below.size());
        const std::string_view above = below.substr(0, slash);
        // Links inside may lead to directories that are there.
        const bool is_there = links_ == Links::inside && is_directory(std::string(above) + "/.");
        made = !is_there && make_directory(above, attributes);
        slash = below.find_first_not_of('/', slash);
    }
    return made;
}

// Makes something under a name that is free, by whatever it takes: what stood there goes, unless it is a
// directory with something in it.
void Beneath::put_in_place(std::string_view below, const char *what,
                           const std::function<int(int, const char *)> &make) const {
    const Place place = place_of(below, what);
    if (!place.parent.is_open())
        fail(what, below, errno);
    const std::string aside = aside_of(place.name);
    remove_left(place.parent.get(), aside.c_str());
    if (make(place.parent.get(), aside.c_str()) == 0 &&
        renameat(place.parent.get(), aside.c_str(), place.parent.get(), place.name.c_str()) == 0)
        return;
    const int error = errno;
    unlinkat(place.parent.get(), aside.c_str(), 0);
    fail(what, below, error);
}

void Beneath::make_link(const std::string &target, std::string_view below) const {
    put_in_place(below, base::translatable("cannot make the link {1}"),
                 [&](int parent, const char *name) { return symlinkat(target.c_str(), parent, name); });
}

void Beneath::make_node(std::string_view below, Attributes attributes, dev_t device) const {
    constexpr const char *what = base::translatable("cannot make the device node {1}");
    put_in_place(below, what, [&](int parent, const char *name) {
        if (mknodat(parent, name, attributes.mode & S_IFMT, device) != 0)
            return -1;
        // What stands there is looked at: it must be the node and not what somebody has put in its place.
        const Descriptor node(open_beneath(parent, name, O_PATH | O_NOFOLLOW,
                                           RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV));
        struct stat status {};
        if (!node.is_open() || fstat(node.get(), &status) != 0)
            return -1;
        errno = (status.st_mode & S_IFMT) != (attributes.mode & S_IFMT) || status.st_rdev != device
                    ? EBUSY
                    : set_attributes_of(node.get(), attributes);
        return errno == 0 ? 0 : -1;
    });
}

void Beneath::set_attributes(std::string_view below, Attributes attributes) const {
    constexpr const char *what = base::translatable("cannot set the owner and mode of {1}");
    const Descriptor entry = open(below, O_PATH, what);
    struct stat status {};
    if (!entry.is_open() || fstat(entry.get(), &status) != 0)
        fail(what, below, errno);
    if (S_ISLNK(status.st_mode))
        fail(what, below, ELOOP);
    if (const int error = set_attributes_of(entry.get(), attributes); error != 0)
        fail(what, below, error);
}

void Beneath::rename(std::string_view from, std::string_view to, unsigned flags) const {
    const Place source = place_of(from, base::translatable("cannot rename {1}"));
    if (!source.parent.is_open())
        fail(base::translatable("cannot rename {1}"), from, errno);
    const Place target = place_of(to, base::translatable("cannot rename something to {1}"));
    if (!target.parent.is_open() || renameat2(source.parent.get(), source.name.c_str(), target.parent.get(),
                                              target.name.c_str(), flags) != 0)
        throw BeneathError(
            base::tr("cannot rename {1} to {2}: {3}", path_of(from), path_of(to), in_words(errno)), errno);
}

bool Beneath::remove(std::string_view below) const {
    const Place place = place_of(below, base::translatable("cannot remove {1}"));
    if (place.parent.is_open() && unlinkat(place.parent.get(), place.name.c_str(), 0) == 0)
        return true;
    if (errno == EISDIR && unlinkat(place.parent.get(), place.name.c_str(), AT_REMOVEDIR) == 0)
        return true;
    if (errno != ENOENT && errno != ENOTDIR)
        fail(base::translatable("cannot remove {1}"), below, errno);
    return false;
}

bool Beneath::remove_tree(std::string_view below) const {
    constexpr const char *what = base::translatable("cannot remove {1}");
    const Place place = place_of(below, what);
    int error = 0;
    for (int i = 0; i < tries; ++i) {
        if (place.parent.is_open() && unlinkat(place.parent.get(), place.name.c_str(), 0) == 0)
            return true;
        if (!place.parent.is_open() || errno != EISDIR) {
            if (errno != ENOENT && errno != ENOTDIR)
                fail(what, below, errno);
            return i > 0;
        }
        Descriptor directory(open_directory_in(place.parent.get(), place.name.c_str()));
        if (directory.is_open()) {
            Beneath(std::move(directory), path_of(below)).remove_contents();
            if (unlinkat(place.parent.get(), place.name.c_str(), AT_REMOVEDIR) == 0)
                return true;
        }
        error = errno;
        if (error != ENOTEMPTY && error != EEXIST && error != ENOTDIR && error != ELOOP)
            break;
    }
    fail(what, below, error);
}

void Beneath::remove_contents() const {
    Removal removal(directory_.get());
    if (const int error = removal.contents(); error != 0)
        fail(base::translatable("cannot remove {1}"), removal.where(), error);
}

void Beneath::flush() const {
    if (syncfs(directory_.get()) != 0)
        fail(base::translatable("cannot flush {1}"), ".", errno);
}

NewFile::NewFile(const Beneath &directory, std::string_view below)
    : directory_(directory), below_(below),
      place_(directory.place_of(below, base::translatable("cannot write {1}"))) {
    if (!place_.parent.is_open())
        directory_.fail(base::translatable("cannot write {1}"), below_, errno);
    const int parent = place_.parent.get();
    aside_ = aside_of(place_.name);
    file_ = make_locked(parent, aside_.c_str());
    if (!file_.is_open() && errno == EEXIST) {
        remove_left(parent, aside_.c_str());
        file_ = make_locked(parent, aside_.c_str());
    }
    for (int i = 0; i < tries && !file_.is_open() && errno == EEXIST; ++i) {
        aside_ = random_name();
        file_ = make_locked(parent, aside_.c_str());
    }
    if (!file_.is_open())
        directory_.fail(base::translatable("cannot write {1}"), below_, errno);
    is_aside_ = true;
}

NewFile::~NewFile() {
    if (is_aside_)
        unlinkat(place_.parent.get(), aside_.c_str(), 0);
}

void NewFile::write(std::string_view text) {
    if (!write_all(file_.get(), text))
        directory_.fail(base::translatable("cannot write {1}"), below_, errno);
}

void NewFile::take_place(Attributes attributes, bool flushed, int like) {
    // A change of the owner takes the capabilities of a file away, so extended attributes come after it.
    int error = set_attributes_of(file_.get(), attributes);
    if (error == 0 && like >= 0)
        error = copy_extended_attributes(like, file_.get());
    if (error != 0)
        directory_.fail(base::translatable("cannot write {1}"), below_, error);
    if ((flushed && fsync(file_.get()) != 0) ||
        renameat(place_.parent.get(), aside_.c_str(), place_.parent.get(), place_.name.c_str()) != 0)
        directory_.fail(base::translatable("cannot write {1}"), below_, errno);
    is_aside_ = false;
    if (flushed && fsync(place_.parent.get()) != 0)
        directory_.fail(base::translatable("cannot write {1}"), below_, errno);
}

} // namespace hostadm::base
