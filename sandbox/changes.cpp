// SPDX-License-Identifier: MIT
// What a run changed. The layer that was written names the candidates; each is then compared, as it was found
// with as it was left, so that a file that was only opened for writing is no change.
#include "sandbox/changes.hpp"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <tuple>

#include "base/translation.hpp"
#include "sandbox/mount_table.hpp"
#include "sandbox/tree.hpp"

namespace hostadm::sandbox {

namespace {

// Opens a path relative to a layer; nothing leads out of it, and no link is followed.
Descriptor open_in_layer(const Descriptor &layer, const std::string &path, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags) | O_CLOEXEC | O_NOFOLLOW;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    return Descriptor(static_cast<int>(
        syscall(SYS_openat2, layer.get(), path.empty() ? "." : path.c_str(), &how, sizeof how)));
}

Descriptor open_directory(const Descriptor &layer, const std::string &path) {
    Descriptor directory = open_in_layer(layer, path, O_RDONLY | O_DIRECTORY);
    if (!directory.is_open())
        fail(base::tr("open /{1} among the changes", path));
    return directory;
}

std::string joined(const std::string &directory, const std::string &name) {
    return directory.empty() ? name : directory + '/' + name;
}

FileState state_of(const Descriptor &layer, const std::string &path) {
    const Descriptor file = open_in_layer(layer, path, O_PATH);
    struct stat status;
    FileState state;
    if (!file.is_open() || fstat(file.get(), &status) != 0)
        return state;
    state.mode = status.st_mode & 07777;
    state.uid = status.st_uid;
    state.gid = status.st_gid;
    if (S_ISREG(status.st_mode)) {
        state.type = FileType::regular;
        state.size = static_cast<std::uint64_t>(status.st_size);
    } else if (S_ISDIR(status.st_mode)) {
        state.type = FileType::directory;
    } else if (S_ISLNK(status.st_mode)) {
        state.type = FileType::link;
        std::array<char, 4096> target;
        const ssize_t size = readlinkat(file.get(), "", target.data(), target.size());
        state.target.assign(target.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    } else {
        state.type = FileType::other;
        state.mode = status.st_mode; // tells which kind
        state.device = status.st_rdev;
    }
    return state;
}

bool same_attributes(const FileState &one, const FileState &other) {
    const auto key = [](const FileState &state) {
        return std::tie(state.type, state.mode, state.uid, state.gid, state.size, state.device, state.target);
    };
    return key(one) == key(other);
}

bool same_content(const Descriptor &one, const Descriptor &other) {
    std::array<char, 65536> first, second;
    for (off_t offset = 0;;) {
        const ssize_t size = pread(one.get(), first.data(), first.size(), offset);
        if (size < 0 || pread(other.get(), second.data(), second.size(), offset) != size)
            return false;
        if (size == 0)
            return true;
        if (!std::equal(first.begin(), first.begin() + size, second.begin()))
            return false;
        offset += size;
    }
}

bool is_whiteout(const struct stat &status) {
    return S_ISCHR(status.st_mode) && status.st_rdev == 0;
}

bool has_mark(const Descriptor &directory, const char *name) {
    return fgetxattr(directory.get(), name, nullptr, 0) > 0;
}

// A written directory that does not simply add to the one below it:
// it hides that one, or shows another one's content.
bool stands_alone(const Descriptor &directory) {
    return has_mark(directory, "trusted.overlay.opaque") || has_mark(directory, "trusted.overlay.redirect");
}

class Collector {
public:
    Collector(const Layers &layers, std::size_t area, std::vector<Change> &changes)
        : layers_(layers), area_(area), changes_(changes) {}

    void collect() { compare_written({}); }

private:
    std::string absolute(const std::string &path) const {
        if (path.empty())
            return layers_.mount_point;
        return (layers_.mount_point == "/" ? "" : layers_.mount_point) + '/' + path;
    }

    // Compares what a written directory names.
    void compare_written(const std::string &path) {
        if (path.empty())
            compare_one(path);
        const Descriptor directory = open_directory(layers_.written, path);
        for (const std::string &name : entries_of(directory.get())) {
            struct stat status;
            if (fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
                fail(base::tr("look at /{1} among the changes", joined(path, name)));
            const std::string entry = joined(path, name);
            if (is_whiteout(status) || !S_ISDIR(status.st_mode))
                compare_tree(entry);
            else if (stands_alone(open_directory(layers_.written, entry)) ||
                     state_of(layers_.found, entry).type != FileType::directory)
                compare_tree(entry);
            else {
                compare_one(entry);
                compare_written(entry);
            }
        }
    }

    // Compares a path, and all that lies below it now, as found with as left.
    void compare_tree(const std::string &path) {
        const auto [before, after] = compare_one(path);
        if (after != FileType::directory)
            return;
        const Descriptor merged = open_directory(layers_.merged, path);
        std::vector<std::string> names = entries_of(merged.get());
        if (before == FileType::directory) {
            const Descriptor found = open_directory(layers_.found, path);
            const std::vector<std::string> old = entries_of(found.get());
            names.insert(names.end(), old.begin(), old.end());
            std::sort(names.begin(), names.end());
            names.erase(std::unique(names.begin(), names.end()), names.end());
        }
        for (const std::string &name : names)
            compare_tree(joined(path, name));
    }

    std::pair<FileType, FileType> compare_one(const std::string &path) {
        Change change;
        change.path = absolute(path);
        change.area = area_;
        change.before = state_of(layers_.found, path);
        change.after = state_of(layers_.merged, path);
        const std::pair types{change.before.type, change.after.type};
        if (change.before.type == FileType::regular && change.after.type == FileType::regular)
            change.content_differs = change.before.size != change.after.size ||
                                     !same_content(open_in_layer(layers_.found, path, O_RDONLY),
                                                   open_in_layer(layers_.merged, path, O_RDONLY));
        if (change.content_differs || !same_attributes(change.before, change.after))
            changes_.push_back(std::move(change));
        return types;
    }

    const Layers &layers_;
    std::size_t area_;
    std::vector<Change> &changes_;
};

std::string relative_to(const std::string &mount_point, const std::string &path) {
    const std::size_t skipped = mount_point == "/" ? 1 : mount_point.size() + 1;
    return path.size() <= skipped ? std::string() : path.substr(skipped);
}

std::size_t count_files(const Descriptor &layer, const std::string &path) {
    std::size_t count = 0;
    const Descriptor directory = open_directory(layer, path);
    for (const std::string &name : entries_of(directory.get())) {
        const std::string entry = joined(path, name);
        count += state_of(layer, entry).type == FileType::directory ? count_files(layer, entry) : 1;
    }
    return count;
}

} // namespace

Changes::Changes() = default;
Changes::Changes(std::unique_ptr<Areas> areas) : areas_(std::move(areas)) {}
Changes::~Changes() = default;
Changes::Changes(Changes &&) noexcept = default;
Changes &Changes::operator=(Changes &&) noexcept = default;

void Changes::collect() {
    list_.clear();
    for (std::size_t area = 0; area < areas_->list.size(); ++area)
        Collector(areas_->list[area], area, list_).collect();
    std::sort(list_.begin(), list_.end(),
              [](const Change &one, const Change &other) { return one.path < other.path; });
}

int Changes::open_before(const Change &change) const {
    const Layers &layers = areas_->list[change.area];
    return open_in_layer(layers.found, relative_to(layers.mount_point, change.path), O_RDONLY | O_NONBLOCK)
        .release();
}

int Changes::open_after(const Change &change) const {
    const Layers &layers = areas_->list[change.area];
    return open_in_layer(layers.merged, relative_to(layers.mount_point, change.path), O_RDONLY | O_NONBLOCK)
        .release();
}

std::size_t Changes::files_before(const Change &change) const {
    const Layers &layers = areas_->list[change.area];
    return change.before.type == FileType::directory
               ? count_files(layers.found, relative_to(layers.mount_point, change.path))
               : 0;
}

std::optional<std::string> Changes::read_after(const std::string &path) const {
    if (!areas_)
        return std::nullopt;
    const Layers *holder = nullptr;
    for (const Layers &layers : areas_->list)
        if (base::is_within(path, layers.mount_point) &&
            (holder == nullptr || layers.mount_point.size() >= holder->mount_point.size()))
            holder = &layers;
    if (holder == nullptr)
        return std::nullopt;
    const Descriptor file = open_in_layer(holder->merged, relative_to(holder->mount_point, path), O_RDONLY);
    if (!file.is_open())
        return std::nullopt;
    std::string content;
    std::array<char, 65536> buffer;
    ssize_t size;
    while ((size = read(file.get(), buffer.data(), buffer.size())) > 0)
        content.append(buffer.data(), static_cast<std::size_t>(size));
    return size < 0 ? std::nullopt : std::optional(std::move(content));
}

} // namespace hostadm::sandbox
