// SPDX-License-Identifier: MIT
// hostadm preview: runs a method in a throwaway root and shows what it would change.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "commands.hpp"
#include "core/descriptor.hpp"
#include "core/process.hpp"
#include "hostadm/sandbox.hpp"
#include "output.hpp"

namespace hostadm::cli {

namespace {

using framework::Descriptor;
using framework::Outcome;
using sandbox::Change;
using sandbox::FileState;
using sandbox::FileType;

// Where the stand-ins keep their notes in the private root. Not among the changes.
const std::string notes = "/var/tmp/hostadm-preview";

// Commands that act on the kernel, on other processes or on the network: recorded, not run.
constexpr std::array recorded_commands = {"/usr/sbin/mount",    "/usr/bin/mount",       "/usr/sbin/umount",
                                          "/usr/bin/umount",    "/usr/sbin/unshare",    "/usr/bin/kill",
                                          "/usr/bin/pkill",     "/usr/bin/killall",     "/usr/bin/systemctl",
                                          "/usr/sbin/service",  "/usr/sbin/swapon",     "/usr/sbin/swapoff",
                                          "/usr/sbin/exportfs", "/usr/sbin/invoke-rc.d"};

// Recorded as well; a process of the daemon's name then stands for it in the throwaway root.
constexpr std::array recorded_daemons = {
    "/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd",        "/usr/sbin/in.rarpd", "/usr/sbin/rpld",
    "/usr/sbin/rarpd",     "/usr/sbin/rpc.bootparamd", "/usr/sbin/in.tftpd"};

// Added trees of more files are summed up, and larger files are not compared line by line, unless everything
// is asked for.
constexpr std::size_t most_files_of_a_tree = 20;
constexpr std::uint64_t largest_text = 256 * 1024;

struct PreviewOptions {
    Invocation invocation;
    bool everything = false;
    double time_limit = 0;
    std::vector<std::string> then; // hostadm's words, to be run in the same root afterwards
};

// ---- stand-ins
// --------------------------------------------------------------------------------------------------

std::string quoted(const std::string &text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + '\'';
}

// Notes the number of arguments, the path and the arguments, each ended by a NUL.
std::string recording_script(const std::string &rest = {}) {
    return "#!/bin/sh\nprintf '%s\\0' \"$#\" \"$0\" \"$@\" >>" + notes + "/commands\n" + rest;
}

// Shares and withdraws in a copy of the list of the live system's shares, as the real commands do in the real
// one: a directory above or below a share of the same file system is refused.
const std::string share_script = "#!/bin/sh\n"
                                 "list=" +
                                 notes +
                                 "/shares\n"
                                 "if [ $# -eq 0 ]; then exec cat \"$list\"; fi\n" +
                                 recording_script(R"(options=rw description=
while getopts F:o:d:p o; do
    case $o in
    o) options=$OPTARG ;;
    d) description=$OPTARG ;;
    esac
done
shift $((OPTIND - 1))
[ $# -eq 0 ] && exit 0
while read -r resource shared rest; do
    case $shared/ in
    "${1%/}"/?*/) neighbour=sub-directory ;;
    *) case $1/ in
        "${shared%/}"/?*/) neighbour=parent ;;
        *) continue ;;
        esac ;;
    esac
    one=$(stat -c %d "$1" 2>/dev/null) && other=$(stat -c %d "$shared" 2>/dev/null) &&
        [ "$one" != "$other" ] && continue
    echo "share: $neighbour ($shared) already shared"
    exit 1
done <"$list"
path=$1 awk '$2 != ENVIRON["path"]' "$list" >"$list.new"
printf -- '-               %s   %s   "%s"\n' "$1" "$options" "$description" >>"$list.new"
mv "$list.new" "$list"
)")
                                     .substr(10);

const std::string unshare_script =
    recording_script("list=" + notes + "/shares\n" + R"(while getopts F:o: o; do :; done
shift $((OPTIND - 1))
if ! path=$1 awk '$2 == ENVIRON["path"] { found = 1 } END { exit !found }' "$list"; then
    echo "unshare: $1: not shared"
    exit 1
fi
path=$1 awk '$2 != ENVIRON["path"]' "$list" >"$list.new"
mv "$list.new" "$list"
)");

// Leaves a process of its name behind, which does nothing for ever, as a daemon leaves itself.
const std::string daemon_script = recording_script("never=" + notes + "/never.$$\n" + R"(mkfifo "$never"
read -r nothing <>"$never" >/dev/null 2>&1 &
echo $! >>)" + notes + "/daemons\n");

const std::string mount_script =
    "#!/bin/sh\nif [ $# -eq 0 ]; then exec cat " + notes + "/mounts; fi\n" + recording_script().substr(10);

bool is_command(const std::string &path) {
    return access(path.c_str(), X_OK) == 0;
}

// What the live system shares. Without arguments the command only tells.
std::string live_shares() {
    const std::string share = "/usr/sbin/share";
    const Descriptor output(memfd_create("hostadm-shares", MFD_CLOEXEC));
    if (!is_command(share) || !output.is_open())
        return {};
    framework::run({.words = {share}, .descriptors = {{STDOUT_FILENO, output.get()}}, .time_limit = 30});
    return framework::read_whole(output.get()).value_or("");
}

// What the live system has mounted, as the mount command tells it.
std::string live_mounts() {
    std::ifstream table("/proc/self/mounts");
    std::string list;
    for (std::string device, point, type, options, rest; table >> device >> point >> type >> options;
         std::getline(table, rest))
        list += device + " on " + point + " type " + type + " (" + options + ")\n";
    return list;
}

// A daemon that is to be started by the path given is recorded like those known by name.
std::vector<std::string> daemons_named(const Invocation &invocation) {
    std::vector<std::string> paths;
    if (invocation.method == "start_daemon" || invocation.method == "host/start_daemon")
        for (const std::string &word : invocation.words)
            if (word.starts_with("path=/"))
                paths.push_back(word.substr(5));
    return paths;
}

std::vector<sandbox::PlacedFile> stand_ins(const Invocation &invocation) {
    std::map<std::string, std::string> scripts;
    for (const std::string &path : daemons_named(invocation))
        scripts[path] = daemon_script;
    for (const char *path : recorded_daemons)
        scripts[path] = daemon_script;
    for (const char *path : recorded_commands)
        scripts[path] = recording_script();
    scripts["/usr/sbin/mount"] = scripts["/usr/bin/mount"] = mount_script;
    scripts["/usr/sbin/share"] = share_script;
    scripts["/usr/sbin/unshare"] = unshare_script;
    std::vector<sandbox::PlacedFile> files;
    for (const auto &[path, script] : scripts)
        files.push_back({path, script, 0755});
    files.push_back({notes + "/commands", "", 0666});
    files.push_back({notes + "/daemons", "", 0666});
    files.push_back({notes + "/shares", live_shares(), 0666});
    files.push_back({notes + "/mounts", live_mounts(), 0666});
    return files;
}

struct Command {
    std::string path;
    std::vector<std::string> arguments;

    std::string text() const {
        std::string line = path;
        for (const std::string &argument : arguments)
            line += ' ' +
                    (argument.empty() || argument.find_first_of(" \t\n'\"\\$`;&|<>()*?[#~!") != argument.npos
                         ? quoted(argument)
                         : argument);
        return line;
    }
};

std::vector<Command> parse_commands(const std::string &text) {
    std::vector<std::string> words;
    for (std::size_t begin = 0, end; (end = text.find('\0', begin)) != text.npos; begin = end + 1)
        words.push_back(text.substr(begin, end - begin));
    std::vector<Command> commands;
    for (std::size_t at = 0; at + 1 < words.size();) {
        const std::size_t count = std::strtoul(words[at].c_str(), nullptr, 10);
        const auto first = words.begin() + static_cast<std::ptrdiff_t>(std::min(at + 2, words.size()));
        const auto last = words.begin() + static_cast<std::ptrdiff_t>(std::min(at + 2 + count, words.size()));
        commands.push_back({words[at + 1], {first, last}});
        at += 2 + count;
    }
    return commands;
}

// ---- the run ----

// A process made now has the highest number.
pid_t highest_process() {
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    waitpid(child, nullptr, 0);
    return child;
}

// Whether anything that the method started is still at it; what stands for a daemon never ends.
bool others_are_at_work() {
    std::ifstream file(notes + "/daemons");
    const std::set<pid_t> daemons{std::istream_iterator<pid_t>(file), {}};
    const pid_t highest = highest_process();
    for (pid_t process = 2; process < highest; ++process)
        if (process != getpid() && !daemons.contains(process) && kill(process, 0) == 0)
            return true;
    return false;
}

// Daemons are started in the background: gives what the method started a moment to come to its stand-in.
void let_others_end() {
    const timespec pause{0, 5'000'000};
    for (int i = 0; i < 400 && others_are_at_work(); ++i)
        nanosleep(&pause, nullptr);
}

// The words of a line, quoted as in a shell; nothing when a quote is not closed.
std::optional<std::vector<std::string>> words_of(const std::string &line) {
    std::vector<std::string> words;
    char quote = 0;
    bool in_word = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (quote == 0 && (c == ' ' || c == '\t' || c == '\n')) {
            in_word = false;
            continue;
        }
        if (!in_word)
            words.emplace_back();
        in_word = true;
        const bool escapes = c == '\\' && at + 1 < line.size() &&
                             (quote == 0 || (quote == '"' && std::strchr("\"\\$`", line[at + 1]) != nullptr));
        if (escapes)
            words.back() += line[++at];
        else if (c == quote)
            quote = 0;
        else if (quote == 0 && (c == '\'' || c == '"'))
            quote = c;
        else
            words.back() += c;
    }
    return quote == 0 ? std::optional(words) : std::nullopt;
}

std::string quotes_defect(const std::string &line) {
    return words_of(line) ? "" : "a quote is not closed in: " + printable(line);
}

// Runs this program again, in the same root, and keeps what it says.
bool run_then(const std::string &line, const std::string &program, int output) {
    std::vector<std::string> command = words_of(line).value_or(std::vector<std::string>());
    command.insert(command.begin(), program);
    framework::write_all(output, "\n== hostadm " + line + '\n');
    const framework::Ending ending =
        framework::run({.words = command, .descriptors = {{STDOUT_FILENO, output}, {STDERR_FILENO, output}}});
    if (!ending.well())
        framework::write_all(output, "(it " + framework::in_words(ending) + ")\n");
    return ending.well();
}

int perform_inside(const PreviewOptions &asked, const std::string &program, int result, int afterwards) {
    const Outcome outcome = perform(asked.invocation);
    const int status = static_cast<int>(outcome.status);
    framework::write_all(result, framework::to_lines(outcome.answer) +
                                     framework::outcome_line(status, outcome.reason));
    let_others_end();
    if (outcome.status != Outcome::Status::done)
        return status;
    bool well = true;
    for (const std::string &line : asked.then)
        well = run_then(line, program, afterwards) && well;
    return well ? done : failed;
}

struct Preview {
    sandbox::Outcome run;
    Outcome method;
    std::vector<Command> commands;
    std::string afterwards; // what the commands of --then said
};

Outcome outcome_of(const sandbox::Outcome &run, int result) {
    Outcome outcome;
    outcome.answer = framework::parse_answer(framework::read_whole(result).value_or(""));
    outcome.reason = outcome.answer.reason;
    if (outcome.answer.outcome)
        outcome.status = static_cast<Outcome::Status>(std::clamp(*outcome.answer.outcome, 0, 2));
    else if (run.timed_out)
        outcome.reason = "it had not ended when the time limit passed; what it did until then is shown";
    else
        outcome.reason = "its run in the throwaway root was cut off";
    return outcome;
}

Preview make_preview(const PreviewOptions &asked) {
    const Descriptor result(memfd_create("hostadm-preview", MFD_CLOEXEC));
    const Descriptor afterwards(memfd_create("hostadm-then", MFD_CLOEXEC));
    if (!result.is_open() || !afterwards.is_open())
        throw std::runtime_error("preview: no memory file can be made");
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    sandbox::Options options;
    options.work = [&] { return perform_inside(asked, program, result.get(), afterwards.get()); };
    options.files = stand_ins(asked.invocation);
    options.live_processes = true;
    options.keep_changes = true;
    options.time_limit = std::chrono::milliseconds(static_cast<long>(asked.time_limit * 1000));
    Preview preview;
    preview.run = sandbox::run(options);
    preview.method = outcome_of(preview.run, result.get());
    preview.commands = parse_commands(preview.run.changes.read_after(notes + "/commands").value_or(""));
    preview.afterwards = framework::read_whole(afterwards.get()).value_or("");
    return preview;
}

// ---- what changed, in words ----

bool is_below(const std::string &path, const std::string &directory) {
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

bool is_shown(const Change &change) {
    return !is_below(change.path, notes) && !is_below(change.path, "/tmp");
}

std::string mode_text(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%o", static_cast<unsigned>(mode & 07777));
    return text;
}

std::string owner_text(const FileState &state) {
    return std::to_string(state.uid) + ':' + std::to_string(state.gid);
}

std::string size_text(std::uint64_t bytes) {
    if (bytes < 10'000)
        return std::to_string(bytes) + " bytes";
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

const char *type_word(const FileState &state) {
    switch (state.type) {
    case FileType::regular:
        return "file";
    case FileType::directory:
        return "directory";
    case FileType::link:
        return "link";
    default:
        break;
    }
    return S_ISCHR(state.mode) || S_ISBLK(state.mode) ? "device"
           : S_ISFIFO(state.mode)                     ? "pipe"
                                                      : "special file";
}

// Mode and, where it is not the administrator's own, owner.
std::string attributes_text(const FileState &state) {
    std::string text = "mode " + mode_text(state.mode);
    if (state.uid != 0 || state.gid != 0)
        text += ", owner " + owner_text(state);
    return text;
}

std::string description_of(const FileState &state) {
    if (state.type == FileType::link)
        return std::string(type_word(state)) + " -> " + printable(state.target);
    std::string text = std::string(type_word(state)) + " (" + attributes_text(state);
    if (state.type == FileType::regular)
        text += ", " + size_text(state.size);
    return text + ')';
}

// How two states of one path differ, apart from their contents.
std::vector<std::string> differences(const Change &change) {
    const FileState &before = change.before, &after = change.after;
    const std::string path = printable(change.path);
    if (before.type != after.type)
        return {"changed " + path + " from " + description_of(before) + " to " + description_of(after)};
    std::vector<std::string> lines;
    if (before.target != after.target)
        lines.push_back("changed link " + path + " -> " + printable(after.target) + " (was " +
                        printable(before.target) + ")");
    if ((before.mode & 07777) != (after.mode & 07777))
        lines.push_back("changed mode of " + path + ": " + mode_text(before.mode) + " to " +
                        mode_text(after.mode));
    if (before.uid != after.uid || before.gid != after.gid)
        lines.push_back("changed owner of " + path + ": " + owner_text(before) + " to " + owner_text(after));
    if (before.type == FileType::other && before.device != after.device)
        lines.push_back("changed device " + path);
    return lines;
}

bool is_text(int fd) {
    std::array<char, 65536> start;
    const ssize_t size = pread(fd, start.data(), start.size(), 0);
    return size >= 0 && std::find(start.begin(), start.begin() + size, '\0') == start.begin() + size;
}

// The changes in the order and the detail in which they are shown.
class Report {
public:
    Report(const sandbox::Changes &changes, bool everything) : changes_(changes), everything_(everything) {
        for (const Change &change : changes.list())
            if (is_shown(change))
                add(change);
        close_tree();
    }

    struct Entry {
        const Change *change = nullptr;
        std::string diff = {};               // unified, of a text file
        std::vector<std::string> lines = {}; // everything else about it
        bool summed_up = false;              // part of an added tree that is told in one line
    };
    const std::vector<Entry> &entries() const { return entries_; }

private:
    void add(const Change &change) {
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
    void close_tree() {
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
        for (std::size_t i = first; i < entries_.size(); ++i) {
            entries_[i].summed_up = sum_up && i != first;
            if (!sum_up)
                describe(entries_[i]);
        }
        if (sum_up)
            entries_[first].lines = {"added directory " + printable(entries_[first].change->path) + " with " +
                                     std::to_string(files) + " files (" + size_text(bytes) + ")"};
    }

    void describe(Entry &entry) const {
        const Change &change = *entry.change;
        const std::string path = printable(change.path);
        const bool has_diff = diff_of(change, entry.diff);
        if (change.added()) {
            if (!has_diff || change.after.mode != 0644 || change.after.uid != 0 || change.after.gid != 0)
                entry.lines.push_back(
                    "added " + std::string(type_word(change.after)) + ' ' + path +
                    description_of(change.after).substr(std::string(type_word(change.after)).size()));
        } else if (change.removed()) {
            std::string line = "removed " + std::string(type_word(change.before)) + ' ' + path;
            if (const std::size_t files = changes_.files_before(change); files != 0)
                line += " with " + std::to_string(files) + (files == 1 ? " file" : " files");
            else if (change.before.type == FileType::link)
                line += " -> " + printable(change.before.target);
            entry.lines.push_back(line);
        } else {
            entry.lines = differences(change);
            if (change.content_differs && !has_diff)
                entry.lines.push_back("changed file " + path + " (" + size_text(change.before.size) +
                                      " before, " + size_text(change.after.size) + " after)");
        }
    }

    // The unified diff of a text file that came, went or changed; false when it is better told in a line.
    bool diff_of(const Change &change, std::string &diff) const {
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
        framework::run({.words = {"diff", "-u", "--label", label(!change.added()), "--label",
                                  label(!change.removed()), "/proc/self/fd/3", "/proc/self/fd/4"},
                        .search = true,
                        .descriptors = {{STDOUT_FILENO, output.get()}, {3, before.get()}, {4, after.get()}}});
        diff = framework::read_whole(output.get()).value_or("");
        return !diff.empty();
    }

    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    const sandbox::Changes &changes_;
    bool everything_;
    std::vector<Entry> entries_;
    std::size_t tree_ = none; // the added directory whose entries are being gathered
};

// ---- printing ----

// On a terminal the contents of files must not steer it.
std::string shown_diff(const std::string &diff) {
    if (isatty(STDOUT_FILENO) == 0)
        return diff;
    std::string shown;
    std::size_t begin = 0;
    for (std::size_t end; (end = diff.find('\n', begin)) != diff.npos; begin = end + 1)
        for (std::size_t tab = begin, next;; tab = next + 1) {
            next = std::min(diff.find('\t', tab), end);
            shown += printable(std::string_view(diff).substr(tab, next - tab));
            shown += next == end ? '\n' : '\t';
            if (next == end)
                break;
        }
    return shown + printable(std::string_view(diff).substr(begin));
}

std::string commands_text(const std::vector<Command> &commands) {
    std::string text;
    for (const Command &command : commands)
        text += "  " + printable(command.text()) +
                (is_command(command.path) ? "" : "    (not installed on this system)") + '\n';
    return text;
}

void print_preview(const Preview &preview, const Report &report) {
    print_results(preview.method.answer);
    if (!preview.method.answer.outputs.empty() || !preview.method.answer.rows.empty())
        print("\n");
    std::string diffs, lines;
    for (const Report::Entry &entry : report.entries()) {
        diffs += shown_diff(entry.diff);
        for (const std::string &line : entry.lines)
            lines += "  " + line + '\n';
    }
    for (const std::string &mount_point : preview.run.read_only)
        lines += "  (" + printable(mount_point) + " could not be layered: it was read-only in the preview)\n";
    const std::string commands = commands_text(preview.commands);
    print(diffs.empty() && lines.empty() ? "No file would change.\n" : diffs);
    if (!lines.empty())
        print((diffs.empty() ? "" : "\n") + std::string("Files:\n") + lines);
    print(commands.empty() ? "" : "\nCommands:\n" + commands);
    print(preview.afterwards);
    print("\nThis was a preview: nothing on this system has been changed.\n");
}

Json json_of(const FileState &state) {
    if (state.type == FileType::none)
        return nullptr;
    Json json = {
        {"type", type_word(state)}, {"mode", mode_text(state.mode)}, {"uid", state.uid}, {"gid", state.gid}};
    if (state.type == FileType::regular)
        json["size"] = state.size;
    if (state.type == FileType::link)
        json["target"] = framework::to_json(state.target);
    return json;
}

Json json_of(const Preview &preview, const Report &report) {
    Json changes = Json::array(), commands = Json::array();
    for (const Report::Entry &entry : report.entries()) {
        const Change &change = *entry.change;
        Json json = {{"path", framework::to_json(change.path)},
                     {"change", change.added()     ? "added"
                                : change.removed() ? "removed"
                                                   : "changed"},
                     {"before", json_of(change.before)},
                     {"after", json_of(change.after)},
                     {"content_differs", change.content_differs}};
        if (!entry.diff.empty())
            json["diff"] = framework::to_json(entry.diff);
        changes.push_back(std::move(json));
    }
    for (const Command &command : preview.commands) {
        Json arguments = Json::array();
        for (const std::string &argument : command.arguments)
            arguments.push_back(framework::to_json(argument));
        commands.push_back({{"path", framework::to_json(command.path)},
                            {"arguments", std::move(arguments)},
                            {"installed", is_command(command.path)}});
    }
    return {{"changes", std::move(changes)}, {"commands", std::move(commands)}};
}

int preview(const PreviewOptions &asked) {
    const Preview preview = make_preview(asked);
    if (preview.run.interrupted_by != 0)
        return preview.run.exit_status;
    const Report report(preview.run.changes, asked.everything);
    if (asked.invocation.json) {
        Json json = cli::json_of(asked.invocation.method, preview.method);
        json.update(json_of(preview, report));
        if (!asked.then.empty())
            json["then"] = framework::to_json(preview.afterwards);
        print_json(json);
    } else if (preview.method.status != Outcome::Status::invalid) {
        print_preview(preview, report);
    }
    print_errors(asked.invocation.method, preview.method);
    if (preview.method.status != Outcome::Status::done)
        return static_cast<int>(preview.method.status);
    if (asked.then.empty() || preview.run.exit_status == 0)
        return done;
    print_error("preview", preview.run.timed_out
                               ? "the time limit passed before every command of --then had ended"
                               : "a command of --then failed; what it said stands under its heading");
    return failed;
}

int preview_or_say_why_not(const PreviewOptions &asked) {
    try {
        return preview(asked);
    } catch (const sandbox::Error &error) {
        print_error("preview", error.what());
        return failed;
    }
}

} // namespace

void add_preview(CLI::App &app, Work &chosen) {
    static PreviewOptions asked;
    CLI::App *command = app.add_subcommand("preview", "show what a method would change, without changing it");
    add_invocation(*command, asked.invocation);
    command->add_flag("--full", asked.everything,
                      "show every file of large added trees, and large files too");
    command->add_option("--time-limit", asked.time_limit, "the time after which the run is cut off")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e6).description(""));
    command
        ->add_option("--then", asked.then,
                     "run `hostadm COMMAND` in the same throwaway root afterwards, such as --then status")
        ->type_name("COMMAND")
        ->check(CLI::Validator(quotes_defect, ""))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->callback([&chosen] { chosen = [] { return preview_or_say_why_not(asked); }; });
    command->footer(
        "The method runs for real, but in a throwaway root over this system. Commands that mount, share, "
        "start or signal something are noted instead of run. Needs root.");
}

} // namespace hostadm::cli
