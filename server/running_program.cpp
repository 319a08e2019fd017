// SPDX-License-Identifier: MIT
#include "server/running_program.hpp"

#include <algorithm>
#include <array>

#include "base/processes.hpp"

namespace hostadm::server {

namespace {

std::string last_component(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

bool is_interpreter(const std::string &program) {
    constexpr std::array known = {"sh", "bash", "dash", "ksh", "perl", "python3"};
    return std::find(known.begin(), known.end(), last_component(program)) != known.end();
}

// As the program itself, or as a script: the first word behind an interpreter and its options.
bool is_started_as(const base::Process &process, const std::string &name) {
    auto word = process.arguments.begin();
    const auto end = process.arguments.end();
    if (word != end && is_interpreter(*word))
        word = std::find_if(word + 1, end, [](const std::string &next) { return !next.starts_with('-'); });
    return word != end && last_component(*word) == name;
}

// A longer name than the kernel keeps is told apart by the command line alone.
bool bears_name(const base::Process &process, const std::string &name) {
    constexpr std::size_t longest = 15;
    return name.size() <= longest && process.short_name == name;
}

} // namespace

std::optional<int> running_program(const std::string &name) {
    for (const base::Process &process : base::live_processes())
        if (is_started_as(process, name) || bears_name(process, name))
            return process.pid;
    return std::nullopt;
}

} // namespace hostadm::server
