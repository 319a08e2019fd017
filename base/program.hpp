// SPDX-License-Identifier: MIT
// Starting a program with chosen descriptors, environment and directory, and waiting for it; its words are
// given as they are, no shell reads them.
#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
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
    // Begins like a program that the system starts: files that it makes are its user's to write and
    // everybody's to read, and no limit of this process cuts off what it writes. Standard descriptors that
    // are closed here lead to /dev/null.
    bool fresh_start = false;
    std::size_t size_limit = 0;                               // bytes of any file that it writes; 0: none
    std::optional<std::string> input = {};                    // what it reads from its standard input
    std::string directory = {};                               // where it is started; empty: here
    std::optional<std::vector<std::string>> environment = {}; // NAME=VALUE; nothing: as this process has it
};

// How a child ended.
struct Ending {
    int start_error = 0; // errno when it could not be started
    int exit_status = 0;
    int signal = 0; // that killed it; 0: none
    bool timed_out = false;

    bool well() const { return start_error == 0 && exit_status == 0 && signal == 0; }
    // There is no such program, or no such directory to start it in.
    bool not_found() const { return start_error == ENOENT; }
};

Ending run(const Program &program);

// How a program ended and what it said until then.
struct Answer {
    Ending ending;
    std::string output;
    std::string errors; // of standard error; empty when both were asked for together
};

enum class Errors { apart, with_output };

// Runs a program and keeps what it says, of each stream at most `limit` bytes; more is read and forgotten.
// What a daemon that it leaves behind says later is not waited for.
Answer run_and_listen(Program program, Errors errors = Errors::apart, std::size_t limit = 64 << 20);

// A program that runs beside others, and what becomes of what it says. The time limit of the program itself
// is not looked at.
struct Companion {
    Program program;
    // A piece of its standard output or error. False: it has said enough and is ended.
    std::function<bool(int stream, std::string_view piece)> hear;
    // When it is ended if it has not ended by itself; asked anew after each piece. Nothing: it has all time.
    std::function<std::optional<std::chrono::steady_clock::time_point>()> deadline;
    std::function<void(const Ending &ending)> ended;
};

// Runs them, at most so many at once, in their order. Those that a signal (see SignalsPassedOn) comes too
// early for are not started; they end by that signal.
void run_together(const std::vector<Companion> &companions, std::size_t at_once);

// While it lives, TERM and HUP that come to this process go on to the program that
// run() waits for, or to all of run_together(), whose answer to them counts; one that
// comes before the program is started reaches it as soon as it is. Signals that are
// ignored or blocked already stay so. Only for a process that is all this system's own,
// with one thread.
class SignalsPassedOn {
public:
    enum class Keyboard { is_left_alone, is_passed_on };
    // The program also gets HUP when the reader of this stream, a pipe or a socket, has gone.
    explicit SignalsPassedOn(int stream = -1, Keyboard keyboard = Keyboard::is_left_alone);
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
