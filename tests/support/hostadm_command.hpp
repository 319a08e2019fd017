// SPDX-License-Identifier: MIT
// The command as a user runs it, for tests inside a throwaway root.
#pragma once

#include <cstdlib>
#include <ostream>
#include <string>
#include <sys/wait.h>

#include "text_files.hpp"

namespace hostadm_command {

struct Result {
    int status = -1;
    std::string output;
    std::string error;
};

inline void PrintTo(const Result &result, std::ostream *out) {
    *out << "status " << result.status << ", output \"" << result.output << "\", error \"" << result.error
         << '"';
}

// Runs build/bin/hostadm with arguments as one types them to a shell.
inline Result hostadm(const std::string &arguments) {
    const int status = std::system(
        (HOSTADM_COMMAND " " + arguments + " >/tmp/hostadm.out 2>/tmp/hostadm.err </dev/null").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, tests::content("/tmp/hostadm.out"),
            tests::content("/tmp/hostadm.err")};
}

} // namespace hostadm_command
