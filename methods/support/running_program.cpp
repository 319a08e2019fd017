// SPDX-License-Identifier: MIT
#include "support/running_program.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

namespace hostadm::support {

namespace fs = std::filesystem;

namespace {

// What the kernel keeps of a process's own name.
constexpr std::size_t longest_short_name = 15;

std::string contents(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string last_component(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

bool is_interpreter(const std::string &program) {
    constexpr std::array known = {"sh", "bash", "dash", "ksh", "perl", "python3"};
    return std::find(known.begin(), known.end(), last_component(program)) != known.end();
}

// As the program itself, or as a script: the first word behind an interpreter and its options.
bool is_started_as(const std::string &command_line, const std::string &name) {
    std::istringstream words(command_line);
    std::string word;
    std::getline(words, word, '\0');
    if (is_interpreter(word))
        while (std::getline(words, word, '\0') && word.starts_with('-')) {
        }
    return last_component(word) == name;
}

// stat reads "ID (SHORT NAME) STATE ...", where the name may hold anything.
bool is_live(const std::string &stat) {
    const std::size_t close = stat.rfind(')');
    return close != stat.npos && close + 2 < stat.size() && stat[close + 2] != 'Z' && stat[close + 2] != 'X';
}

// A longer name than the kernel keeps is told apart by the command line alone.
bool bears_name(const std::string &stat, const std::string &name) {
    const std::size_t open = stat.find('('), close = stat.rfind(')');
    return name.size() <= longest_short_name && stat.substr(open + 1, close - open - 1) == name;
}

} // namespace

std::optional<int> running_program(const std::string &name) {
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
        const std::string id = entry->path().filename();
        int number = 0;
        if (std::from_chars(id.data(), id.data() + id.size(), number).ptr != id.data() + id.size())
            continue;
        const std::string command_line = contents(entry->path() / "cmdline");
        const std::string stat = contents(entry->path() / "stat");
        if (is_live(stat) && (is_started_as(command_line, name) || bears_name(stat, name)))
            return number;
    }
    return std::nullopt;
}

} // namespace hostadm::support
