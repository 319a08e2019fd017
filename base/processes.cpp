// SPDX-License-Identifier: MIT
#include "base/processes.hpp"

#include <charconv>
#include <cstdint>
#include <ctime>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/files.hpp"
#include "base/owners.hpp"
#include "base/text.hpp"

namespace hostadm::base {

namespace {

bool is_number(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

std::vector<std::string> zero_separated(std::string_view text) {
    if (text.ends_with('\0'))
        text.remove_suffix(1);
    std::vector<std::string> words;
    if (!text.empty())
        for (const std::string_view word : split(text, '\0'))
            words.emplace_back(word);
    return words;
}

} // namespace

std::optional<ProcessStat> parse_process_stat(std::string_view text) {
    const std::size_t open = text.find(" (");
    const std::size_t close = text.rfind(") ");
    if (open == text.npos || close == text.npos || close < open + 2 || close + 2 >= text.size())
        return std::nullopt;
    ProcessStat stat;
    const auto [end, error] = std::from_chars(text.data(), text.data() + open, stat.pid);
    if (error != std::errc() || end != text.data() + open || stat.pid <= 0)
        return std::nullopt;
    stat.name = text.substr(open + 2, close - open - 2);
    stat.state = text[close + 2];
    return stat;
}

std::vector<Process> all_processes(const std::string &proc) {
    std::vector<Process> processes;
    const Directory table(opendir(proc.c_str()));
    while (const dirent *entry = table == nullptr ? nullptr : readdir(table.get())) {
        if (!is_number(entry->d_name))
            continue;
        const std::string place = proc + "/" + entry->d_name;
        const std::string line = file_contents(place + "/stat"); // empty when the process has ended
        struct stat owner {};
        const auto known = parse_process_stat(line);
        if (!known || stat(place.c_str(), &owner) != 0)
            continue;
        processes.push_back({.pid = known->pid,
                             .short_name = std::string(known->name),
                             .arguments = zero_separated(file_contents(place + "/cmdline")),
                             .owner = owner.st_uid,
                             .state = known->state});
    }
    return processes;
}

std::vector<Process> live_processes(const std::string &proc) {
    std::vector<Process> processes = all_processes(proc);
    std::erase_if(processes, [](const Process &one) { return one.state == 'Z' || one.state == 'X'; });
    return processes;
}

bool shares_root(int pid) {
    struct stat ours {
    }, theirs{};
    return stat("/proc/self/root", &ours) == 0 &&
           stat(("/proc/" + std::to_string(pid) + "/root").c_str(), &theirs) == 0 &&
           ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino;
}

std::optional<std::chrono::system_clock::time_point> start_of(int pid) {
    using namespace std::chrono;
    const std::string line = file_contents("/proc/" + std::to_string(pid) + "/stat");
    if (!parse_process_stat(line))
        return std::nullopt;
    // The 22nd field of the line, of which the third is the first behind the name: ticks since this host began.
    const auto fields = words_of(std::string_view(line).substr(line.rfind(") ") + 2));
    constexpr std::size_t place = 19;
    std::uint64_t ticks = 0;
    if (fields.size() <= place ||
        std::from_chars(fields[place].data(), fields[place].data() + fields[place].size(), ticks).ec !=
            std::errc())
        return std::nullopt;
    timespec up{};
    clock_gettime(CLOCK_BOOTTIME, &up);
    const auto age = seconds(up.tv_sec) + nanoseconds(up.tv_nsec) -
                     milliseconds(ticks * 1000 / static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK)));
    return time_point_cast<system_clock::duration>(system_clock::now() - age);
}

} // namespace hostadm::base
