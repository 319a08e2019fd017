// SPDX-License-Identifier: MIT
#include "rehearsal/journal_follower.hpp"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace hostadm::rehearsal {

JournalFollower::JournalFollower(const std::string &program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    output_ = base::Descriptor(ends[0]);
    fcntl(output_.get(), F_SETFL, O_NONBLOCK); // of this end only
    const base::Descriptor input(ends[1]);
    std::string words[] = {program, "--follow", "--lines=0", "--no-pager", "--quiet", "--output=short"};
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (posix_spawnp(&reader_, program.c_str(), &actions, nullptr, arguments.data(), environ) != 0)
        reader_ = -1;
    posix_spawn_file_actions_destroy(&actions);
}

JournalFollower::~JournalFollower() {
    if (reader_ <= 0)
        return;
    kill(reader_, SIGKILL);
    waitpid(reader_, nullptr, 0);
}

std::vector<std::string> JournalFollower::new_lines() {
    constexpr std::size_t longest_line = 1 << 16;
    char buffer[8192];
    std::vector<std::string> lines;
    for (ssize_t got = 0; output_.is_open() && (got = read(output_.get(), buffer, sizeof buffer)) > 0;) {
        begun_.append(buffer, static_cast<std::size_t>(got));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = begun_.find('\n', begin)) != begun_.npos; begin = end + 1)
            lines.push_back(begun_.substr(begin, end - begin));
        begun_.erase(0, begin);
        if (begun_.size() > longest_line)
            begun_.clear();
    }
    return lines;
}

} // namespace hostadm::rehearsal
