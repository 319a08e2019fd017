// SPDX-License-Identifier: MIT
// Runs a command and stops it, like a debugger, before one chosen system call of it or of a program that it runs,
// so that something may be changed between two system calls at every place there is.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace attacks {

struct Stopped {
    bool was_there = false; // the command came so far
    int status = -1;        // its exit status
    std::string call = {};  // for messages
};

// Stops before the system call NUMBER, from 1, of those that name a file whose path holds one of the needles, does
// `swap`, and lets the command go on to its end.
Stopped run_and_swap(const std::vector<std::string> &command, const std::vector<std::string> &needles,
                     int number, const std::function<void()> &swap);

} // namespace attacks
