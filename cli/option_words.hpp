// SPDX-License-Identifier: MIT
// What the library of options says by itself, in the reader's language.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace hostadm::cli {

// The words of its help. Before options and subcommands are added.
void translate_words(CLI::App &app);
// The headings of the list of subcommands. Behind them.
void translate_headings(CLI::App &app);
// What it says of a command line that it refuses.
std::string in_words(const CLI::App &app, const CLI::ParseError &wrong);

} // namespace hostadm::cli
