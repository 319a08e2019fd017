// SPDX-License-Identifier: MIT
// The help of a command in lines as narrow as its reader's terminal.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace hostadm::cli {

class NarrowHelp : public CLI::Formatter {
public:
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override;
};

} // namespace hostadm::cli
