// SPDX-License-Identifier: MIT
#include "compat/packages/placement.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace compat {
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

void clear_beside(const Descriptor &parent, const std::string &path) {
    for (const char *const ending : {fresh_ending, saved_ending})
        unlinkat(parent.get(), beside(path, ending).c_str(), 0);
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
        if (!entry.is_directory())
            if (const Descriptor parent = root_.directory(directory_part(entry.path)))
                clear_beside(parent, entry.path);
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
    if (root_.directory(directory))
        return;
    if (errno != ENOENT)
        fail_with_errno(directory);
    if (const auto info = root_.status(directory))
        throw Failure(directory + " is a link that leads to no directory inside the root");
    make_parents(directory);
    const Descriptor parent = root_.parent_of(directory);
    if (mkdirat(parent.get(), last_part(directory).c_str(), 0755) != 0)
        fail_with_errno("cannot make " + directory);
    undo_.push_back([this, directory] {
        unlinkat(root_.parent_of(directory).get(), last_part(directory).c_str(), AT_REMOVEDIR);
    });
    fchownat(parent.get(), last_part(directory).c_str(), 0, 0, AT_SYMLINK_NOFOLLOW);
    fchmodat(parent.get(), last_part(directory).c_str(), 0755, 0);
}

void Placement::set_attributes(int directory, const std::string &name, const Entry &entry,
                               mode_t otherwise) const {
    if (fchownat(directory, name.c_str(), accounts_.user(entry.owner), accounts_.group(entry.group),
                 AT_SYMLINK_NOFOLLOW) != 0)
        fail_with_errno("cannot give " + entry.path + " to " + entry.owner + ":" + entry.group);
    // After the owner, whose change takes the set-user and set-group bits away.
    if (fchmodat(directory, name.c_str(), entry.mode.value_or(otherwise), 0) != 0)
        fail_with_errno("cannot set the mode of " + entry.path);
}

void Placement::place_directory(const Entry &entry) {
    if (entry.path != "/" && !root_.directory(entry.path)) {
        if (errno != ENOENT)
            throw Failure(entry.path + " is there already and is no directory");
        make_parents(entry.path + "/below");
    }
    const Descriptor directory = root_.open(entry.path, O_RDONLY | O_DIRECTORY);
    struct stat before = {};
    if (!directory || fstat(directory.get(), &before) != 0)
        fail_with_errno(entry.path);
    undo_.push_back([this, path = entry.path, before] {
        const Descriptor again = root_.open(path, O_RDONLY | O_DIRECTORY);
        if (again && fchown(again.get(), before.st_uid, before.st_gid) == 0)
            fchmod(again.get(), before.st_mode & 07777U);
    });
    const uid_t user = entry.owner == "?" ? before.st_uid : accounts_.user(entry.owner);
    const gid_t group = entry.group == "?" ? before.st_gid : accounts_.group(entry.group);
    if (fchown(directory.get(), user, group) != 0 ||
        fchmod(directory.get(), entry.mode.value_or(before.st_mode & 07777U)) != 0)
        fail_with_errno("cannot set the owner and mode of " + entry.path);
}

Descriptor Placement::begin(const std::string &path, Pending &pending) {
    make_parents(path);
    Descriptor parent = root_.parent_of(path);
    pending.path = path;
    pending.fresh = beside(path, fresh_ending);
    pending.saved = beside(path, saved_ending);
    clear_beside(parent, path);
    struct stat info = {};
    pending.had_before = fstatat(parent.get(), last_part(path).c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
    if (pending.had_before && S_ISDIR(info.st_mode))
        throw Failure(path + " is there already and is a directory");
    pending_.push_back(pending);
    return parent;
}

void Placement::stage_file(const Package &package, const Entry &entry) {
    const Descriptor source = package.open_source(entry);
    Pending pending;
    const Descriptor parent = begin(entry.path, pending);
    const Descriptor fresh(openat(parent.get(), pending.fresh.c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fresh)
        fail_with_errno("cannot make " + entry.path);
    Checksum sum;
    uint64_t size = 0;
    char piece[65536];
    for (ssize_t count; (count = read(source.get(), piece, sizeof piece)) != 0;) {
        if (count < 0)
            fail_with_errno("cannot read " + entry.written);
        working_();
        sum.add({piece, static_cast<size_t>(count)});
        size += static_cast<size_t>(count);
        write_all(fresh.get(), {piece, static_cast<size_t>(count)}, entry.path);
    }
    if (size != entry.size || sum.value() != entry.sum)
        throw Failure("the file " + entry.written + " has changed while it was installed");
    set_attributes(parent.get(), pending.fresh, entry, 0644);
    if (entry.modified) {
        const timespec times[2] = {{*entry.modified, 0}, {*entry.modified, 0}};
        futimens(fresh.get(), times);
    }
}

void Placement::stage_text(const std::string &path, const std::string &text, mode_t mode) {
    Pending pending;
    const Descriptor parent = begin(path, pending);
    const Descriptor fresh(openat(parent.get(), pending.fresh.c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fresh)
        fail_with_errno("cannot make " + path);
    write_all(fresh.get(), text, path);
    if (fchmod(fresh.get(), mode) != 0)
        fail_with_errno("cannot set the mode of " + path);
}

// A new link is made at once, since later files of the package may lie behind it.
void Placement::stage_link(const Entry &entry) {
    make_parents(entry.path);
    const std::string name = last_part(entry.path);
    const Descriptor parent = root_.parent_of(entry.path);
    if (symlinkat(entry.target.c_str(), parent.get(), name.c_str()) == 0) {
        undo_.push_back(
            [this, path = entry.path] { unlinkat(root_.parent_of(path).get(), last_part(path).c_str(), 0); });
        return;
    }
    if (errno != EEXIST)
        fail_with_errno("cannot make the link " + entry.path);
    std::string present(entry.target.size() + 1, '\0');
    const ssize_t length = readlinkat(parent.get(), name.c_str(), present.data(), present.size());
    if (length >= 0 && std::string_view(present.data(), static_cast<size_t>(length)) == entry.target)
        return;
    Pending pending;
    begin(entry.path, pending);
    if (symlinkat(entry.target.c_str(), parent.get(), pending.fresh.c_str()) != 0)
        fail_with_errno("cannot make the link " + entry.path);
}

void Placement::stage_hard_link(const Entry &entry) {
    const auto staged = std::find_if(pending_.begin(), pending_.end(),
                                     [&](const Pending &other) { return other.path == entry.target; });
    const std::string name = staged == pending_.end() ? last_part(entry.target) : staged->fresh;
    Pending pending;
    const Descriptor parent = begin(entry.path, pending);
    const Descriptor source = root_.parent_of(entry.target);
    if (linkat(source.get(), name.c_str(), parent.get(), pending.fresh.c_str(), 0) != 0)
        fail_with_errno("cannot link " + entry.path + " to " + entry.target);
}

void Placement::stage_special(const Entry &entry) {
    Pending pending;
    const Descriptor parent = begin(entry.path, pending);
    const mode_t type = entry.type == 'b' ? S_IFBLK : entry.type == 'c' ? S_IFCHR : S_IFIFO;
    if (mknodat(parent.get(), pending.fresh.c_str(), type | 0600U, makedev(entry.major, entry.minor)) != 0)
        fail_with_errno("cannot make the device " + entry.path);
    set_attributes(parent.get(), pending.fresh, entry, 0600);
}

void Placement::commit() {
    // One flush for all: no file may be in place before its contents are on the disk.
    if (syncfs(root_.get()) != 0)
        fail_with_errno("cannot write to the disk");
    for (Pending &pending : pending_) {
        const Descriptor parent = root_.parent_of(pending.path);
        const std::string name = last_part(pending.path);
        if (pending.had_before &&
            linkat(parent.get(), name.c_str(), parent.get(), pending.saved.c_str(), 0) != 0)
            fail_with_errno("cannot save " + pending.path);
        // Two names of one file: rename would leave both.
        if (renameat(parent.get(), pending.fresh.c_str(), parent.get(), name.c_str()) != 0)
            fail_with_errno("cannot put " + pending.path + " in place");
        pending.renamed = true;
        unlinkat(parent.get(), pending.fresh.c_str(), 0);
    }
    committed_ = true;
}

void Placement::roll_back() noexcept {
    const auto attempt = [](const auto &action) {
        try {
            action();
        } catch (const std::exception &error) {
            std::fprintf(stderr, "pkgadd: cannot take back: %s\n", error.what());
        }
    };
    for (auto pending = pending_.rbegin(); pending != pending_.rend(); ++pending)
        attempt([&] {
            const Descriptor parent = root_.parent_of(pending->path);
            const std::string name = last_part(pending->path);
            unlinkat(parent.get(), pending->fresh.c_str(), 0);
            if (pending->renamed && !pending->had_before)
                unlinkat(parent.get(), name.c_str(), 0);
            else if (pending->renamed)
                renameat(parent.get(), pending->saved.c_str(), parent.get(), name.c_str());
            else
                unlinkat(parent.get(), pending->saved.c_str(), 0);
        });
    for (auto action = undo_.rbegin(); action != undo_.rend(); ++action)
        attempt(*action);
}

void Placement::drop_saved() noexcept {
    for (const Pending &pending : pending_)
        if (const Descriptor parent = root_.directory(directory_part(pending.path)))
            unlinkat(parent.get(), pending.saved.c_str(), 0);
}

} // namespace compat
