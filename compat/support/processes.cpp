// SPDX-License-Identifier: MIT
#include "compat/support/processes.hpp"

#include <algorithm>

#include "base/program.hpp"
#include "base/translation.hpp"
#include "compat/support/failure.hpp"

namespace compat {

using hostadm::base::Process;

// Anybody can call a process what he likes: one of an ordinary user is no daemon.
std::vector<Process> daemons_named(std::string_view name) {
    std::vector<Process> found = hostadm::base::live_processes();
    std::erase_if(found, [&](const Process &process) {
        return process.short_name != name || process.owner != 0 || !hostadm::base::shares_root(process.pid);
    });
    std::sort(found.begin(), found.end(),
              [](const Process &one, const Process &other) { return one.pid < other.pid; });
    return found;
}

void run_or_fail(const std::vector<std::string> &words) {
    const hostadm::base::Answer answer =
        hostadm::base::run_and_listen({.words = words}, hostadm::base::Errors::with_output);
    if (answer.ending.well())
        return;
    const std::string said = answer.output.substr(0, answer.output.find('\n'));
    std::string command = words.front().substr(words.front().rfind('/') + 1);
    for (std::size_t index = 1; index < words.size(); ++index)
        command += " " + words[index];
    throw Failure(hostadm::base::tr("{1} failed: {2}", command,
                                    (said.empty() ? hostadm::base::in_words(answer.ending) : said)));
}

} // namespace compat
