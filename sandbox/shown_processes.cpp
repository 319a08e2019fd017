// SPDX-License-Identifier: MIT
#include "sandbox/shown_processes.hpp"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "base/files.hpp"
#include "base/processes.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "sandbox/tree.hpp"

namespace hostadm::sandbox {

namespace {

// Fields of /proc/PID/stat, from 1 on. Behind the sizes come places in memory, which only root is told.
constexpr std::size_t state_field = 3, terminal_field = 7, last_shown_field = 25;

struct Line {
    std::string shown;
    bool has_terminal = true;
};

Line shown_line(std::string_view text) {
    Line line;
    const std::size_t name_end = text.rfind(") ");
    if (name_end == text.npos)
        return line;
    line.shown = text.substr(0, name_end + 1);
    std::size_t field = state_field;
    for (const std::string_view word : base::words_of(text.substr(name_end + 1))) {
        if (field == terminal_field)
            line.has_terminal = word != "0";
        line.shown += ' ';
        line.shown += field <= last_shown_field ? word : "0";
        ++field;
    }
    line.shown += '\n';
    return line;
}

// A word of a session may be a secret.
std::string shown_words(const base::Process &process, bool has_terminal) {
    std::string text;
    for (const std::string &word : process.arguments) {
        text += word + '\0';
        if (process.owner != 0 || has_terminal)
            break;
    }
    return text;
}

void keep(const std::string &path, const std::string &text) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0444));
    if (!file.is_open() || !base::write_all(file.get(), text))
        fail(base::tr("keep {1}", path));
}

} // namespace

Descriptor closed_processes() {
    const Descriptor context(fsopen("proc", FSOPEN_CLOEXEC));
    // By this name the setting belongs to one mount; before, it changed all that the system has.
    if (!context.is_open() || fsconfig(context.get(), FSCONFIG_SET_STRING, "hidepid", "noaccess", 0) != 0 ||
        fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        return {};
    return Descriptor(
        fsmount(context.get(), FSMOUNT_CLOEXEC, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV | MOUNT_ATTR_NOEXEC));
}

void show_names_of_processes(const std::string &proc, const std::string &folder) {
    // What is bound from a mount that is read-only is so too.
    if (mkdir(folder.c_str(), 0755) != 0)
        fail(base::tr("make {1}", folder));
    const std::vector<base::Process> processes = base::all_processes("/proc");
    std::vector<std::string> kept;
    for (const base::Process &process : processes) {
        const std::string number = std::to_string(process.pid), place = folder + "/" + number;
        const Line line = shown_line(base::file_contents("/proc/" + number + "/stat"));
        if (line.shown.empty())
            continue; // it has ended
        if (mkdir(place.c_str(), 0555) != 0 ||
            chown(place.c_str(), process.owner, static_cast<gid_t>(-1)) != 0)
            fail(base::tr("make {1}", place));
        keep(place + "/stat", line.shown);
        keep(place + "/comm", process.short_name + "\n");
        keep(place + "/cmdline", shown_words(process, line.has_terminal));
        kept.push_back(number);
    }
    if (mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
        mount(nullptr, folder.c_str(), nullptr,
              MS_REMOUNT | MS_BIND | MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
        fail(base::tr("make {1} read-only", folder));
    for (const std::string &number : kept)
        if (mount((folder + "/" + number).c_str(), (proc + "/" + number).c_str(), nullptr, MS_BIND,
                  nullptr) != 0 &&
            errno != ENOENT) // it has ended
            fail(base::tr("show a process"));
}

} // namespace hostadm::sandbox
