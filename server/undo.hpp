// SPDX-License-Identifier: MIT
// Work of several steps that is to leave nothing half done, however it ends: by a failure, by a library
// function that ends the process, by a signal.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "hostadm/method.hpp"

namespace hostadm::server {

// What the steps are about to do, told before each one does it, so that a step that broke off can be taken
// back too. It outlives the process that writes it.
class Journal {
public:
    Journal(); // throws std::system_error
    ~Journal();
    Journal(const Journal &) = delete;
    Journal &operator=(const Journal &) = delete;

    // An entry is a few words; none may hold a tab or a newline. Throws std::system_error.
    void note(const std::vector<std::string> &words);
    std::vector<std::vector<std::string>> entries() const;

private:
    int descriptor_;
};

struct Ending {
    bool done = false;
    std::string reason =
        {}; // for a failure that has not recorded an error itself: "interrupted (SIGINT)", ...
};

// Runs the work in a process of its own and waits for it. INT, TERM, HUP and
// QUIT end the work and all commands that it runs; from the call on they no
// longer end this process, which has yet to take back what was done.
Ending run_apart(const std::function<int()> &work);

// Takes back what the journal holds, the latest first. `undo` does it for one entry and returns what had to
// stay, in words, or nothing. Says on standard error that all is back, or what is left half done.
void take_back(method::Call &call, const Journal &journal,
               const std::function<std::string(const std::vector<std::string> &)> &undo);

} // namespace hostadm::server
