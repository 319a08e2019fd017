// SPDX-License-Identifier: MIT
// What a preview puts in the place of the commands that would reach beyond the throwaway root: stand-ins that
// note their arguments.
#pragma once

#include <string>
#include <vector>

#include "cli/commands.hpp"
#include "hostadm/sandbox.hpp"

namespace hostadm::cli {

// Where the stand-ins keep their notes in the throwaway root.
inline const std::string stand_in_notes = "/var/tmp/hostadm-preview";

struct Command {
    std::string path;
    std::vector<std::string> arguments;

    // As one would type it in a shell.
    std::string text() const;
    // Whether this system has it.
    bool is_installed() const;
};

// The files to be placed for a preview of that run.
std::vector<sandbox::PlacedFile> stand_ins(const Invocation &invocation);

// Inside: daemons are started in the background; this gives
// what the method started a moment to come to its stand-in.
void let_others_end();

// The commands that would have run, in their order.
std::vector<Command> noted_commands(const sandbox::Changes &changes);

} // namespace hostadm::cli
