// SPDX-License-Identifier: MIT
#include "cli/preview_stand_ins.hpp"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/mounts.hpp"
#include "base/program.hpp"
#include "cli/own_programs.hpp"

namespace hostadm::cli {

namespace {

using base::Descriptor;

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

// Notes the number of arguments, the path and the arguments, each ended by a NUL.
const std::string note_the_call = "printf '%s\\0' \"$#\" \"$0\" \"$@\" >>" + stand_in_notes + "/commands\n";

std::string quoted(const std::string &text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + '\'';
}

std::string script(const std::string &lines) {
    return "#!/bin/sh\n" + lines;
}

// Changes a copy of the list of the live system's shares, as the real command does the real one.
std::string sharing_script(const std::string &name) {
    const std::string list = stand_in_notes + "/shares";
    const std::string tell =
        name == "share" ? "if [ $# -eq 0 ]; then exec cat " + list + "; fi\n" : std::string();
    return script(tell + note_the_call + "exec " + quoted(own_program("preview-share")) + " " + list + " " +
                  name + " \"$@\"\n");
}

// Leaves a process of its name behind, which does nothing for ever, as a daemon leaves itself.
const std::string daemon_script = script(note_the_call + "never=" + stand_in_notes + "/never.$$\n" +
                                         R"(mkfifo "$never"
read -r nothing <>"$never" >/dev/null 2>&1 &
echo $! >>)" + stand_in_notes + "/daemons\n");

const std::string mount_script =
    script("if [ $# -eq 0 ]; then exec cat " + stand_in_notes + "/mounts; fi\n" + note_the_call);

bool is_command(const std::string &path) {
    return access(path.c_str(), X_OK) == 0;
}

// What the live system shares. Without arguments the command only tells.
std::string live_shares() {
    const std::string share = "/usr/sbin/share";
    const Descriptor output(memfd_create("hostadm-shares", MFD_CLOEXEC));
    if (!is_command(share) || !output.is_open())
        return {};
    base::run({.words = {share}, .descriptors = {{STDOUT_FILENO, output.get()}}, .time_limit = 30});
    return base::read_whole(output.get()).value_or("");
}

// What the live system has mounted, as the mount command tells it.
std::string live_mounts() {
    std::string list;
    for (const base::Mount &mount : base::all_mounts())
        list += mount.source + " on " + mount.point + " type " + mount.type + " (" +
                base::all_options(mount) + ")\n";
    return list;
}

// What the method says that it leaves running, "NAME=" being the value of that argument.
std::vector<std::string> programs_started(const Invocation &invocation) {
    std::vector<std::string> paths;
    const auto found = framework::find_method("", invocation.method);
    const auto *name = std::get_if<std::string>(&found);
    if (name == nullptr)
        return paths;
    const auto described = framework::describe(*name);
    const auto *description = std::get_if<method::Description>(&described);
    if (description == nullptr)
        return paths;
    for (const std::string &program : description->starts) {
        if (program.starts_with('/'))
            paths.push_back(program);
        for (const std::string &word : invocation.words)
            if (program.ends_with('=') && word.starts_with(program + "/"))
                paths.push_back(word.substr(program.size()));
    }
    return paths;
}

// The commands from what the stand-ins wrote.
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
    std::ifstream file(stand_in_notes + "/daemons");
    const std::set<pid_t> daemons{std::istream_iterator<pid_t>(file), {}};
    const pid_t highest = highest_process();
    for (pid_t process = 2; process < highest; ++process)
        if (process != getpid() && !daemons.contains(process) && kill(process, 0) == 0)
            return true;
    return false;
}

} // namespace

std::string Command::text() const {
    std::string line = path;
    for (const std::string &argument : arguments)
        line +=
            ' ' + (argument.empty() || argument.find_first_of(" \t\n'\"\\$`;&|<>()*?[#~!") != argument.npos
                       ? quoted(argument)
                       : argument);
    return line;
}

bool Command::is_installed() const {
    return is_command(path);
}

std::vector<sandbox::PlacedFile> stand_ins(const Invocation &invocation) {
    std::map<std::string, std::string> scripts;
    for (const std::string &path : programs_started(invocation))
        scripts[path] = daemon_script;
    for (const char *path : recorded_daemons)
        scripts[path] = daemon_script;
    for (const char *path : recorded_commands)
        scripts[path] = script(note_the_call);
    scripts["/usr/sbin/mount"] = scripts["/usr/bin/mount"] = mount_script;
    scripts["/usr/sbin/share"] = sharing_script("share");
    scripts["/usr/sbin/unshare"] = sharing_script("unshare");
    std::vector<sandbox::PlacedFile> files;
    for (const auto &[path, script] : scripts)
        files.push_back({path, script, 0755});
    files.push_back({stand_in_notes + "/commands", "", 0666});
    files.push_back({stand_in_notes + "/daemons", "", 0666});
    files.push_back({stand_in_notes + "/shares", live_shares(), 0666});
    files.push_back({stand_in_notes + "/mounts", live_mounts(), 0666});
    return files;
}

void let_others_end() {
    const timespec pause{0, 5'000'000};
    for (int i = 0; i < 400 && others_are_at_work(); ++i)
        nanosleep(&pause, nullptr);
}

std::vector<Command> noted_commands(const sandbox::Changes &changes) {
    return parse_commands(changes.read_after(stand_in_notes + "/commands").value_or(""));
}

} // namespace hostadm::cli
