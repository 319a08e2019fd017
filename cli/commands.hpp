// SPDX-License-Identifier: MIT
// The subcommands of `hostadm`. Each adds itself, with its options and its help, to the command line, and
// sets `chosen` to its work (which returns the exit status) when the user asks for it.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "cli/output.hpp"
#include "hostadm/runner.hpp"

namespace hostadm::cli {

using Work = std::function<int()>;

inline constexpr int done = 0;
inline constexpr int failed = 1;
inline constexpr int usage = 2;

void add_list(CLI::App &app, Work &chosen);
void add_help(CLI::App &app, Work &chosen);
void add_run(CLI::App &app, Work &chosen);
void add_preview(CLI::App &app, Work &chosen);
void add_status(CLI::App &app, Work &chosen);
void add_check(CLI::App &app, Work &chosen);
void add_rehearse(CLI::App &app, Work &chosen);
void add_watch(CLI::App &app, Work &chosen);
void add_arg(CLI::App &app, Work &chosen);
// Hidden ones: the far end of `run --host`, what the shell asks when a user types, and what writes the manual
// pages at build time.
void add_serve(CLI::App &app, Work &chosen);
void add_complete(CLI::App &app, Work &chosen);
void add_generate(CLI::App &app, Work &chosen);

// A run as the user asked for it: for `run` and for `preview`.
struct Invocation {
    std::string method;             // CLASS/NAME, or NAME where that is unique
    std::vector<std::string> words; // NAME=VALUE
    std::string from = {};          // a file with further arguments; "-": standard input
    bool json = false;
};

// Adds the method and its NAME=VALUE words, --from and --json, to a subcommand.
void add_invocation(CLI::App &command, Invocation &invocation);
// Puts the arguments in the file of --from behind the words. Throws what is wrong with it as a wrong usage.
void take_words_from_file(Invocation &invocation);

// Tells of a command, topic, class or method; of the whole when the subject is empty.
int help(const CLI::App &app, const std::string &subject, bool json = false);

// Lists the checks of `hostadm check`, for `hostadm help checks`.
int help_checks();

// Runs the method here. What is wrong with the words is an outcome too (Status::invalid).
framework::Outcome perform(const Invocation &invocation);

// The request that the words make, or what is wrong with them.
std::variant<framework::Request, std::string> request_of(const Invocation &invocation);

// Its parts: what came out, as JSON; outputs and rows on standard output; errors on standard error.
Json json_of(const std::string &method, const framework::Outcome &outcome);
void print_results(const framework::Answer &answer);
void print_errors(const std::string &method, const framework::Outcome &outcome);

// Prints what came out: results to standard output, errors to standard error. Returns the exit status.
int report(const Invocation &invocation, const framework::Outcome &outcome);

// Both.
int run(const Invocation &invocation);

} // namespace hostadm::cli
