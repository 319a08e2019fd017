// SPDX-License-Identifier: MIT
#include "base/processes.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "base/files.hpp"

namespace hostadm::base {

namespace fs = std::filesystem;

namespace {

bool is_number(const std::string &text, int &number) {
    const char *end = text.data() + text.size();
    return std::from_chars(text.data(), end, number).ptr == end;
}

std::vector<std::string> zero_separated(const std::string &text) {
    std::vector<std::string> words;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\0', begin), text.size());
        words.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

} // namespace

std::vector<Process> live_processes(const std::string &proc) {
    std::vector<Process> processes;
    std::error_code error;
    for (fs::directory_iterator entry(proc, error), end; !error && entry != end; entry.increment(error)) {
        Process process;
        if (!is_number(entry->path().filename(), process.pid))
            continue;
        // "PID (SHORT NAME) STATE ...", where the name may hold anything; empty when the process has ended.
        const std::string stat = file_contents(entry->path() / "stat");
        const std::size_t open = stat.find('('), close = stat.rfind(')');
        if (close == stat.npos || close + 2 >= stat.size() || stat[close + 2] == 'Z' ||
            stat[close + 2] == 'X')
            continue;
        process.short_name = stat.substr(open + 1, close - open - 1);
        process.arguments = zero_separated(file_contents(entry->path() / "cmdline"));
        processes.push_back(std::move(process));
    }
    return processes;
}

} // namespace hostadm::base
