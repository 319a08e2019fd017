// SPDX-License-Identifier: MIT
// Stand-ins for system() and popen(): they remember each command line and answer as a test says, so that a
// test sees the exact text that would have gone to the shell and nothing runs.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace fakes {

struct Answer {
    std::string contains;    // answers the first command line that holds this text
    int status = 0;          // what system or pclose returns
    std::string output = {}; // what a popen stream gives
    bool starts = true;      // false: popen returns NULL, errno ENOMEM
    bool once = false;       // used up by its first match
    int error = 0;           // errno of a popen that does not start (0: ENOMEM) or a pclose that returns -1
};

struct Commands {
    bool real = false; // true: commands really run (and are still remembered)
    std::vector<std::string> lines;
    std::deque<Answer> answers; // looked through in order; none fits: silent success
    int open_streams = 0;
    std::size_t exit_after = 0; // not 0: the process ends with status 9 at that many commands
};

Commands &commands();
void reset_commands();

// Resets every fake; call it in a fixture's SetUp.
void reset_all();

} // namespace fakes
