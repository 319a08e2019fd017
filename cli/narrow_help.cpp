// SPDX-License-Identifier: MIT
#include "cli/narrow_help.hpp"

#include <sstream>

#include "base/columns.hpp"

namespace hostadm::cli {

namespace {

// Where the text of a line begins that has something in front of it, "  --json    print it"; 0: nothing has.
std::size_t begin_of_text(const std::string &line) {
    const std::size_t word = line.find_first_not_of(' ');
    const std::size_t gap = word == line.npos ? line.npos : line.find("  ", word);
    return gap == line.npos ? 0 : line.find_first_not_of(' ', gap);
}

} // namespace

std::string NarrowHelp::make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const {
    std::istringstream lines(CLI::Formatter::make_help(app, std::move(name), mode));
    std::string all;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t begin = begin_of_text(line);
        all += base::with_hanging_text(line.substr(0, begin), line.substr(begin), base::columns_of_reader()) +
               "\n";
    }
    return all;
}

} // namespace hostadm::cli
