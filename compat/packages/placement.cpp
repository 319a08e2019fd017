// SPDX-License-Identifier: MIT
#include "compat/packages/placement.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "base/translation.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"

namespace compat {

using hostadm::base::Beneath;
using hostadm::base::Descriptor;

namespace {

// Beside its place, so that it is on the same file system, and the same in every run, so that the next one
// finds what a killed one has left. A longer name would not fit.
std::string beside(const std::string &path, const char *ending) {
    const std::string name = last_part(path);
    const std::string part =
        name.size() <= 230 ? name : name.substr(0, 200) + std::to_string(std::hash<std::string>()(name));
    return "." + part + ending;
}

constexpr const char *fresh_ending = ".pkgnew";
constexpr const char *saved_ending = ".pkgold";

[[noreturn]] void fail_as_replaced(const std::string &path) {
    throw Failure(hostadm::base::tr("{1} was replaced by somebody else while it was installed", path));
}

Descriptor make_file(const Beneath &parent, const std::string &name, const std::string &path) {
    Descriptor file(openat(parent.descriptor(), name.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        fail_with_errno(hostadm::base::tr("cannot make {1}", path));
    return file;
}

struct stat status_of(const Descriptor &file, const std::string &path) {
    struct stat info = {};
    if (fstat(file.get(), &info) != 0)
        fail_with_errno(path);
    return info;
}

// Of what is there under this name, a link itself and not its target.
struct stat status_of(const Beneath &parent, const std::string &name, const std::string &path) {
    const auto info = parent.status(name);
    if (!info)
        fail_as_replaced(path);
    return *info;
}

void clear_beside(const Beneath &parent, const std::string &path) {
    for (const char *const ending : {fresh_ending, saved_ending})
        unlinkat(parent.descriptor(), beside(path, ending).c_str(), 0);
}

} // namespace

Placement::~Placement() {
    if (committed_)
        drop_saved();
    else
        roll_back();
}

void Placement::clear_remains(const Package &package) const {
    for (const Entry &entry : package.entries())
        if (!entry.is_directory() && root_.has_directory(directory_part(entry.path)))
            clear_beside(root_.parent_of(entry.path), entry.path);
}

void Placement::stage(const Package &package, const Entry &entry) {
    working_();
    if (entry.is_directory())
        place_directory(entry);
    else if (entry.is_file())
        stage_file(package, entry);
    else if (entry.type == 's')
        stage_link(entry);
    else if (entry.type == 'l')
        stage_hard_link(entry);
    else
        stage_special(entry);
}

void Placement::make_parents(const std::string &path) {
    const std::string directory = directory_part(path);
    if (root_.has_directory(directory))
        return;
    if (const auto present = root_.status(directory))
        throw Failure(
            S_ISLNK(present->st_mode)
                ? hostadm::base::tr("{1} is a link that leads to no directory inside the root", directory)
                : hostadm::base::tr("{1} is there already and is no directory", directory));
    make_parents(directory);
    if (root_.make_directory(directory))
        undo_.push_back([this, directory] {
            unlinkat(root_.parent_of(directory).descriptor(), last_part(directory).c_str(), AT_REMOVEDIR);
        });
    changed_.insert(directory);
    changed_.insert(directory_part(directory));
}

void Placement::place_directory(const Entry &entry) {
    if (entry.path != "/")
        make_parents(entry.path + "/below");
    const Beneath directory = root_.directory(entry.path);
    struct stat before = {};
    if (fstat(directory.descriptor(), &before) != 0)
        fail_with_errno(entry.path);
    undo_.push_back([this, path = entry.path, before] {
        const Beneath again = root_.directory(path);
        if (fchown(again.descriptor(), before.st_uid, before.st_gid) == 0)
            fchmod(again.descriptor(), before.st_mode & 07777U);
    });
    const uid_t user = entry.owner == "?" ? before.st_uid : accounts_.user(entry.owner);
    const gid_t group = entry.group == "?" ? before.st_gid : accounts_.group(entry.group);
    if (fchown(directory.descriptor(), user, group) != 0 ||
        fchmod(directory.descriptor(), entry.mode.value_or(before.st_mode & 07777U)) != 0)
        fail_with_errno(hostadm::base::tr("cannot set the owner and mode of {1}", entry.path));
    changed_.insert(entry.path);
}

Beneath Placement::begin(const std::string &path, Pending &pending) {
    make_parents(path);
    Beneath parent = root_.parent_of(path);
    pending.path = path;
    pending.fresh = beside(path, fresh_ending);
    pending.saved = beside(path, saved_ending);
    clear_beside(parent, path);
    const auto present = parent.status(last_part(path));
    pending.had_before = present.has_value();
    if (present && S_ISDIR(present->st_mode))
        throw Failure(hostadm::base::tr("{1} is there already and is a directory", path));
    pending_.push_back(pending);
    changed_.insert(directory_part(path));
    return parent;
}

void Placement::staged(Pending pending, const struct stat &object) {
    pending.device = object.st_dev;
    pending.inode = object.st_ino;
    pending_.back() = std::move(pending);
}

void Placement::stage_file(const Package &package, const Entry &entry) {
    const Descriptor source = package.open_source(entry);
    Pending pending;
    const Beneath parent = begin(entry.path, pending);
    const Descriptor fresh = make_file(parent, pending.fresh, entry.path);
    Checksum sum;
    uint64_t size = 0;
    char piece[65536];
    for (ssize_t count; (count = read(source.get(), piece, sizeof piece)) != 0;) {
        if (count < 0 && errno != EINTR)
            fail_with_errno(hostadm::base::tr("cannot read {1}", entry.written));
        working_();
        if (count < 0)
            continue;
        sum.add({piece, static_cast<size_t>(count)});
        size += static_cast<size_t>(count);
        write_all(fresh, {piece, static_cast<size_t>(count)}, entry.path);
    }
    if (size != entry.size || sum.value() != entry.sum)
        throw Failure(hostadm::base::tr("the file {1} has changed while it was installed", entry.written));
    if (fchown(fresh.get(), accounts_.user(entry.owner), accounts_.group(entry.group)) != 0)
        fail_with_errno(
            hostadm::base::tr("cannot give {1} to {2}:{3}", entry.path, entry.owner, entry.group));
    // After the owner, whose change takes the set-user and set-group bits away.
    if (fchmod(fresh.get(), entry.mode.value_or(0644)) != 0)
        fail_with_errno(hostadm::base::tr("cannot set the mode of {1}", entry.path));
    if (entry.modified) {
        const timespec times[2] = {{*entry.modified, 0}, {*entry.modified, 0}};
        futimens(fresh.get(), times);
    }
    staged(std::move(pending), status_of(fresh, entry.path));
}

void Placement::stage_record(const std::string &path, const std::string &text) {
    Pending pending;
    const Beneath parent = begin(path, pending);
    const Descriptor fresh = make_file(parent, pending.fresh, path);
    write_all(fresh, text, path);
    if (fchmod(fresh.get(), 0644) != 0)
        fail_with_errno(hostadm::base::tr("cannot set the mode of {1}", path));
    pending.record = true;
    staged(std::move(pending), status_of(fresh, path));
}

// A new link is made at once, since later files of the package may lie behind it.
void Placement::stage_link(const Entry &entry) {
    make_parents(entry.path);
    const std::string name = last_part(entry.path);
    const Beneath parent = root_.parent_of(entry.path);
    if (symlinkat(entry.target.c_str(), parent.descriptor(), name.c_str()) == 0) {
        undo_.push_back([this, path = entry.path] {
            unlinkat(root_.parent_of(path).descriptor(), last_part(path).c_str(), 0);
        });
        changed_.insert(directory_part(entry.path));
        return;
    }
    if (errno != EEXIST)
        fail_with_errno(hostadm::base::tr("cannot make the link {1}", entry.path));
    const auto present = parent.status(name);
    if (present && S_ISLNK(present->st_mode) && parent.link_target(name) == entry.target)
        return;
    Pending pending;
    begin(entry.path, pending);
    if (symlinkat(entry.target.c_str(), parent.descriptor(), pending.fresh.c_str()) != 0)
        fail_with_errno(hostadm::base::tr("cannot make the link {1}", entry.path));
    const struct stat object = status_of(parent, pending.fresh, entry.path);
    staged(std::move(pending), object);
}

void Placement::stage_hard_link(const Entry &entry) {
    const auto other = std::find_if(pending_.begin(), pending_.end(),
                                    [&](const Pending &each) { return each.path == entry.target; });
    const std::string name = other == pending_.end() ? last_part(entry.target) : other->fresh;
    Pending pending;
    const Beneath parent = begin(entry.path, pending);
    const Beneath source = root_.parent_of(entry.target);
    if (linkat(source.descriptor(), name.c_str(), parent.descriptor(), pending.fresh.c_str(), 0) != 0)
        fail_with_errno(hostadm::base::tr("cannot link {1} to {2}", entry.path, entry.target));
    const struct stat object = status_of(parent, pending.fresh, entry.path);
    staged(std::move(pending), object);
}

void Placement::stage_special(const Entry &entry) {
    Pending pending;
    const Beneath parent = begin(entry.path, pending);
    const mode_t type = entry.type == 'b' ? S_IFBLK : entry.type == 'c' ? S_IFCHR : S_IFIFO;
    const dev_t device = entry.type == 'p' ? 0 : makedev(entry.major, entry.minor);
    if (mknodat(parent.descriptor(), pending.fresh.c_str(), type | 0600U, device) != 0)
        fail_with_errno(hostadm::base::tr("cannot make the device {1}", entry.path));
    parent.set_attributes(pending.fresh, {.mode = entry.mode.value_or(0600),
                                          .owner = accounts_.user(entry.owner),
                                          .group = accounts_.group(entry.group)});
    const struct stat object = status_of(parent, pending.fresh, entry.path);
    if ((object.st_mode & S_IFMT) != type || object.st_rdev != device)
        fail_as_replaced(entry.path);
    staged(std::move(pending), object);
}

void Placement::put_in_place(Pending &pending) {
    const Beneath parent = root_.parent_of(pending.path);
    const int directory = parent.descriptor();
    const std::string name = last_part(pending.path);
    if (pending.had_before && linkat(directory, name.c_str(), directory, pending.saved.c_str(), 0) != 0)
        fail_with_errno(hostadm::base::tr("cannot save {1}", pending.path));
    // Two names of one file: rename would leave both.
    if (renameat(directory, pending.fresh.c_str(), directory, name.c_str()) != 0)
        fail_with_errno(hostadm::base::tr("cannot put {1} in place", pending.path));
    pending.renamed = true;
    unlinkat(directory, pending.fresh.c_str(), 0);
    const struct stat object = status_of(parent, name, pending.path);
    if (object.st_dev != pending.device || object.st_ino != pending.inode)
        fail_as_replaced(pending.path);
}

// Each file system once.
void Placement::flush() const {
    std::set<dev_t> flushed;
    for (const std::string &path : changed_) {
        const Beneath directory = root_.directory(path);
        struct stat info = {};
        if (fstat(directory.descriptor(), &info) != 0)
            fail_with_errno(path);
        if (flushed.insert(info.st_dev).second)
            directory.flush();
    }
}

void Placement::commit() {
    flush(); // no file may be in place before its contents are on the disk
    for (const bool record : {false, true}) {
        for (Pending &pending : pending_)
            if (pending.record == record)
                put_in_place(pending);
        flush();
    }
    committed_ = true;
}

void Placement::roll_back() noexcept {
    const auto attempt = [](const auto &action) {
        try {
            action();
        } catch (const std::exception &error) {
            std::fprintf(stderr, "pkgadd: %s\n",
                         hostadm::base::tr("cannot take back: {1}", error.what()).c_str());
        }
    };
    for (auto pending = pending_.rbegin(); pending != pending_.rend(); ++pending)
        attempt([&] {
            const Beneath parent = root_.parent_of(pending->path);
            const int directory = parent.descriptor();
            const std::string name = last_part(pending->path);
            unlinkat(directory, pending->fresh.c_str(), 0);
            if (pending->renamed && !pending->had_before)
                unlinkat(directory, name.c_str(), 0);
            else if (pending->renamed)
                renameat(directory, pending->saved.c_str(), directory, name.c_str());
            else
                unlinkat(directory, pending->saved.c_str(), 0);
        });
    for (auto action = undo_.rbegin(); action != undo_.rend(); ++action)
        attempt(*action);
    attempt([&] {
        changed_ = {"/"}; // others may be gone again
        flush();
    });
}

void Placement::drop_saved() noexcept {
    try {
        bool dropped = false;
        for (const Pending &pending : pending_)
            if (pending.had_before)
                dropped |=
                    unlinkat(root_.parent_of(pending.path).descriptor(), pending.saved.c_str(), 0) == 0;
        if (dropped)
            flush();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "pkgadd: %s\n", error.what()); // it is installed all the same
    }
}

} // namespace compat
