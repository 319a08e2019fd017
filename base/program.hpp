// SPDX-License-Identifier: MIT
// Starting a program with chosen descriptors and waiting for it.
#pragma once

#include <csignal>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/descriptor.hpp"

namespace hostadm::base {

struct Program {
    std::vector<std::string> words; // the first is the path, or with search a name looked up in PATH
    bool search = false;
    // Descriptors of the child and what they are here. Standard input is /dev/null and standard error is
    // inherited unless said otherwise; everything else is closed.
    std::vector<std::pair<int, int>> descriptors = {};
    std::string path_prefix = {}; // put in front of PATH if not empty
    int time_limit = 0;           // seconds, then its process group, one of its own, is killed; 0: none
    std::size_t size_limit = 0;   // bytes of any file that it writes; 0: none
};

// How a child ended.
struct Ending {
    int start_error = 0; // errno when it could not be started
    int exit_status = 0;
    int signal = 0; // that killed it; 0: none
    bool timed_out = false;

    bool well() const { return start_error == 0 && exit_status == 0 && signal == 0; }
};

Ending run(const Program &program);

// While it lives, TERM and HUP that come to this process go on to the program that
// run() waits for, whose answer to them counts; one that comes before the program is
// started reaches it as soon as it is. Signals that are ignored or blocked already
// stay so. Only for a process that is all this system's own, with one thread.
class SignalsPassedOn {
public:
    // The program also gets HUP when the reader of this stream, a pipe or a socket, has gone.
    explicit SignalsPassedOn(int stream = -1);
    ~SignalsPassedOn();
    SignalsPassedOn(const SignalsPassedOn &) = delete;
    SignalsPassedOn &operator=(const SignalsPassedOn &) = delete;

private:
    sigset_t before_;
    Descriptor signals_;
};

// "killed by signal 11 (Segmentation fault)" and the like.
std::string in_words(const Ending &ending);

} // namespace hostadm::base
