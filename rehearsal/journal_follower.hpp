// SPDX-License-Identifier: MIT
// The lines that the system's journal gets from now on, where there is one.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "base/descriptor.hpp"

namespace hostadm::rehearsal {

class JournalFollower {
public:
    // With the program of this name, found in PATH. Where it cannot be started nothing is ever told.
    explicit JournalFollower(const std::string &program = "journalctl");
    ~JournalFollower();
    JournalFollower(const JournalFollower &) = delete;
    JournalFollower &operator=(const JournalFollower &) = delete;

    // Whole lines that have come since the last call. Nobody is waited for.
    std::vector<std::string> new_lines();

private:
    base::Descriptor output_;
    pid_t reader_ = -1;
    std::string begun_; // a line that is not whole yet
};

} // namespace hostadm::rehearsal
