// SPDX-License-Identifier: MIT
// How the commands ended that the library ran. Where silence is its only sign of success, a command that was killed
// says as much as one that did its work.
#pragma once

#include <csignal>

namespace hostadm::server {

// One at a time, in a process with one thread.
class WatchedCommands {
public:
    WatchedCommands();
    ~WatchedCommands();
    WatchedCommands(const WatchedCommands &) = delete;
    WatchedCommands &operator=(const WatchedCommands &) = delete;

    // A signal has ended one of the commands since.
    bool any_was_killed() const;

private:
    struct sigaction before_ {};
};

} // namespace hostadm::server
