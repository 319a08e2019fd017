// SPDX-License-Identifier: MIT
#include "cli/preview_report.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/program.hpp"
#include "base/translation.hpp"
#include "cli/output.hpp"
#include "cli/preview_stand_ins.hpp"

namespace hostadm::cli {

using base::Descriptor;
using sandbox::Change;
using sandbox::FileState;
using sandbox::FileType;

const char *type_word(const FileState &state) {
    switch (state.type) {
    case FileType::regular:
        return base::translatable("file");
    case FileType::directory:
        return base::translatable("directory");
    case FileType::link:
        return base::translatable("link");
    default:
        break;
    }
    return S_ISCHR(state.mode) || S_ISBLK(state.mode) ? base::translatable("device")
           : S_ISFIFO(state.mode)                     ? base::translatable("pipe")
                                                      : base::translatable("special file");
}

std::string mode_text(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%o", static_cast<unsigned>(mode & 07777));
    return text;
}

namespace {

// Added trees of more files are summed up, and larger files are
// not compared line by line, unless everything is asked for.
constexpr std::size_t most_files_of_a_tree = 20;
constexpr std::uint64_t largest_text = 256 * 1024;

bool is_below(const std::string &path, const std::string &directory) {
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

bool is_shown(const Change &change) {
    return !is_below(change.path, stand_in_notes) && !is_below(change.path, "/tmp");
}

std::string owner_text(const FileState &state) {
    return std::to_string(state.uid) + ':' + std::to_string(state.gid);
}

std::string size_text(std::uint64_t bytes) {
    if (bytes < 10'000)
        return base::tr("{1} bytes", bytes);
    double size = static_cast<double>(bytes);
    const char *unit = "kB";
    for (const char *next : {"kB", "MB", "GB", "TB"}) {
        unit = next;
        size /= 1000;
        if (size < 1000)
            break;
    }
    char text[32];
    std::snprintf(text, sizeof text, size < 10 ? "%.1f %s" : "%.0f %s", size, unit);
    return text;
}

// Mode and, where it is not the administrator's own, owner.
std::string attributes_text(const FileState &state) {
    return state.uid == 0 && state.gid == 0
               ? base::tr("mode {1}", mode_text(state.mode))
               : base::tr("mode {1}, owner {2}", mode_text(state.mode), owner_text(state));
}

// What follows the type, or the path.
std::string details_of(const FileState &state) {
    if (state.type == FileType::link)
        return " -> " + printable(state.target);
    std::string text = " (" + attributes_text(state);
    if (state.type == FileType::regular)
        text += ", " + size_text(state.size);
    return text + ')';
}

std::string description_of(const FileState &state) {
    return base::tr(type_word(state)) + details_of(state);
}

// How two states of one path differ, apart from their contents.
std::vector<std::string> differences(const Change &change) {
    const FileState &before = change.before, &after = change.after;
    const std::string path = printable(change.path);
    if (before.type != after.type)
        return {base::tr("changed {1} from {2} to {3}", path, description_of(before), description_of(after))};
    std::vector<std::string> lines;
    if (before.target != after.target)
        lines.push_back(base::tr("changed link {1} -> {2} (was {3})", path, printable(after.target),
                                 printable(before.target)));
    if ((before.mode & 07777) != (after.mode & 07777))
        lines.push_back(
            base::tr("changed mode of {1}: {2} to {3}", path, mode_text(before.mode), mode_text(after.mode)));
    if (before.uid != after.uid || before.gid != after.gid)
        lines.push_back(
            base::tr("changed owner of {1}: {2} to {3}", path, owner_text(before), owner_text(after)));
    if (before.type == FileType::other && before.device != after.device)
        lines.push_back(base::tr("changed device {1}", path));
    return lines;
}

bool is_text(int fd) {
    std::array<char, 65536> start;
    const ssize_t size = pread(fd, start.data(), start.size(), 0);
    return size >= 0 && std::find(start.begin(), start.begin() + size, '\0') == start.begin() + size;
}

} // namespace

ChangesReport::ChangesReport(const sandbox::Changes &changes, bool everything)
    : changes_(changes), everything_(everything) {
    for (const Change &change : changes.list())
        if (is_shown(change))
            add(change);
    close_tree();
}

void ChangesReport::add(const Change &change) {
    if (tree_ < entries_.size() && is_below(change.path, entries_[tree_].change->path)) {
        entries_.push_back({.change = &change});
        return;
    }
    close_tree();
    entries_.push_back({.change = &change});
    if (change.added() && change.after.type == FileType::directory)
        tree_ = entries_.size() - 1;
    else
        describe(entries_.back());
}

// An added directory and all below it: file by file, or in one line when there are many.
void ChangesReport::close_tree() {
    const std::size_t first = tree_;
    tree_ = none;
    if (first >= entries_.size())
        return;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
    for (std::size_t i = first; i < entries_.size(); ++i) {
        files += entries_[i].change->after.type != FileType::directory;
        bytes += entries_[i].change->after.size;
    }
    const bool sum_up = files > most_files_of_a_tree && !everything_;
    if (!sum_up)
        for (std::size_t i = first; i < entries_.size(); ++i)
            describe(entries_[i]);
    else
        entries_[first].lines = {base::tr("added directory {1} with {2} files ({3})",
                                          printable(entries_[first].change->path), files, size_text(bytes))};
}

void ChangesReport::describe(Entry &entry) const {
    const Change &change = *entry.change;
    const std::string path = printable(change.path);
    const bool has_diff = diff_of(change, entry.diff);
    if (change.added()) {
        if (!has_diff || change.after.mode != 0644 || change.after.uid != 0 || change.after.gid != 0)
            entry.lines.push_back(base::tr("added {1} {2}", base::tr(type_word(change.after)), path) +
                                  details_of(change.after));
    } else if (change.removed()) {
        std::string line = base::tr("removed {1} {2}", base::tr(type_word(change.before)), path);
        if (const std::size_t files = changes_.files_before(change); files != 0)
            line += " " + base::tr_n(files, "with {1} file", "with {1} files");
        else if (change.before.type == FileType::link)
            line += " -> " + printable(change.before.target);
        entry.lines.push_back(line);
    } else {
        entry.lines = differences(change);
        if (change.content_differs && !has_diff)
            entry.lines.push_back(base::tr("changed file {1} ({2} before, {3} after)", path,
                                           size_text(change.before.size), size_text(change.after.size)));
    }
}

// The unified diff of a text file that came, went or changed; false when it is better told in a line.
bool ChangesReport::diff_of(const Change &change, std::string &diff) const {
    const bool came_or_went = change.added() || change.removed();
    const FileType type = change.added() ? change.after.type : change.before.type;
    if (type != FileType::regular || (!came_or_went && !change.content_differs))
        return false;
    if (!everything_ && std::max(change.before.size, change.after.size) > largest_text)
        return false;
    const Descriptor before(change.added() ? open("/dev/null", O_RDONLY | O_CLOEXEC)
                                           : changes_.open_before(change));
    const Descriptor after(change.removed() ? open("/dev/null", O_RDONLY | O_CLOEXEC)
                                            : changes_.open_after(change));
    const Descriptor output(memfd_create("hostadm-diff", MFD_CLOEXEC));
    if (!before.is_open() || !after.is_open() || !output.is_open() || !is_text(before.get()) ||
        !is_text(after.get()))
        return false;
    const auto label = [&](bool is_there) { return is_there ? change.path : std::string("/dev/null"); };
    base::run({.words = {"diff", "-u", "--label", label(!change.added()), "--label", label(!change.removed()),
                         "/proc/self/fd/3", "/proc/self/fd/4"},
               .search = true,
               .descriptors = {{STDOUT_FILENO, output.get()}, {3, before.get()}, {4, after.get()}}});
    diff = base::read_whole(output.get()).value_or("");
    return !diff.empty();
}

} // namespace hostadm::cli
