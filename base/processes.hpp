// SPDX-License-Identifier: MIT
// The processes of this host.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace hostadm::base {

struct Process {
    int pid = 0;
    std::string short_name;             // as the kernel knows it
    std::vector<std::string> arguments; // none: a thread of the kernel
    uid_t owner = 0;                    // anybody can call a process what he likes
    char state = 'S';                   // as the kernel tells it: T is stopped, Z defunct
};

// All of them, the defunct ones too. proc is where the process table is.
std::vector<Process> all_processes(const std::string &proc = "/proc");
// Those that are neither defunct nor end while this looks.
std::vector<Process> live_processes(const std::string &proc = "/proc");

// Whether a process sees the same root directory as this one, and so is no other container's.
bool shares_root(int pid);
// When it was started, to a hundredth of a second; nothing: there is no such process.
std::optional<std::chrono::system_clock::time_point> start_of(int pid);

// What the line of /proc/ID/stat tells first: "ID (NAME) STATE ...". A name may hold blanks, brackets and
// newlines.
struct ProcessStat {
    int pid = 0;
    std::string_view name; // of the text given
    char state = '\0';

    bool is_defunct() const { return state == 'Z' || state == 'X'; }
};
std::optional<ProcessStat> parse_process_stat(std::string_view text);

} // namespace hostadm::base
