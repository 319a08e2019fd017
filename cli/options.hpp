// SPDX-License-Identifier: MIT
// What the commands take, for their manual page and for the shell's completion.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace hostadm::cli {

// The commands that are not for hostadm's own use.
std::vector<const CLI::App *> commands_of(const CLI::App &app);
// Its options, but for the help that every command has.
std::vector<const CLI::Option *> options_of(const CLI::App &command);
std::vector<const CLI::Option *> positionals_of(const CLI::App &command);

std::string long_name(const CLI::Option &option); // with its dashes
bool takes_value(const CLI::Option &option);
bool is_repeated(const CLI::Option &option);

} // namespace hostadm::cli
