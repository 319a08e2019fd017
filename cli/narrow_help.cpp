// SPDX-License-Identifier: MIT
#include "cli/narrow_help.hpp"

#include <sstream>

#include "base/columns.hpp"
#include "cli/options.hpp"

namespace hostadm::cli {

namespace {

// Where the text of a line begins, behind what stands in front of it, "  --json    print it", or behind its blanks.
std::size_t begin_of_text(const std::string &line) {
    const std::size_t word = line.find_first_not_of(' ');
    const std::size_t gap = word == line.npos ? line.npos : line.find("  ", word);
    const std::size_t text = gap == line.npos ? word : line.find_first_not_of(' ', gap);
    return text == line.npos ? 0 : text;
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

std::string NarrowHelp::make_option_name(const CLI::Option *option, bool is_positional) const {
    return is_positional && !option->get_option_text().empty()
               ? option->get_option_text()
               : CLI::Formatter::make_option_name(option, is_positional);
}

std::string NarrowHelp::make_option_opts(const CLI::Option *option) const {
    return takes_value(*option) && !option->get_positional() ? " " + option->get_type_name() : "";
}

} // namespace hostadm::cli
