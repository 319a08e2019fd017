// SPDX-License-Identifier: MIT
// Runs a job and all the processes that it starts, and lets exactly one of the system calls by which they
// open or change files fail, or ends them all at once before it, as a power cut would. strace counts calls in
// each process on its own, so that a job of many processes would meet one fault in each, its cleaning up
// included.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace faults {

struct Fault {
    int at = 0;    // the number of the call from 1; 0: none
    int error = 0; // what it fails with; 0: everything is killed before it
};

struct Ran {
    std::vector<std::string> calls; // in the order in which they were made: "rename /etc/hosts"
    bool met = false;               // the call of the fault was made
    int status = 0;                 // of the job, as wait() says it
};

// Whether processes may be traced here, and how is known for this kind of machine.
bool available();

// The work runs in a process of its own; its result is the exit status. `before` is called while the process waits
// before each of the calls, with its number.
Ran run(const std::function<int()> &work, const Fault &fault = {},
        const std::function<void(std::size_t)> &before = {});

} // namespace faults
