// SPDX-License-Identifier: MIT
#include "server/watched_commands.hpp"

namespace hostadm::server {

namespace {

volatile std::sig_atomic_t was_killed = 0;

// Who waited for the child has taken its status; the signal tells it again.
void note_ending(int, siginfo_t *child, void *) {
    constexpr int least_of_a_shell = 128; // its status for a command that a signal has ended
    if (child->si_code == CLD_KILLED || child->si_code == CLD_DUMPED ||
        (child->si_code == CLD_EXITED && child->si_status > least_of_a_shell))
        was_killed = 1;
}

} // namespace

WatchedCommands::WatchedCommands() {
    was_killed = 0;
    struct sigaction note {};
    note.sa_sigaction = note_ending;
    note.sa_flags = SA_SIGINFO | SA_RESTART | SA_NOCLDSTOP;
    sigemptyset(&note.sa_mask);
    sigaction(SIGCHLD, &note, &before_);
}

WatchedCommands::~WatchedCommands() {
    sigaction(SIGCHLD, &before_, nullptr);
}

bool WatchedCommands::any_was_killed() const {
    return was_killed != 0;
}

} // namespace hostadm::server
