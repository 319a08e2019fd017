// SPDX-License-Identifier: MIT
// The help of a command in lines as narrow as its reader's terminal.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace hostadm::cli {

class NarrowHelp : public CLI::Formatter {
public:
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override;
    // Only what is typed: a name, and what its value is. What it needs stands in its text.
    std::string make_option_name(const CLI::Option *option, bool is_positional) const override;
    std::string make_option_opts(const CLI::Option *option) const override;
};

} // namespace hostadm::cli
