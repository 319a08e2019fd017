// SPDX-License-Identifier: MIT
// Printing for people and for programs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "framework/protocol/bytes.hpp"

namespace hostadm::cli {

using framework::Json;

// An aligned table with a line of headings.
class Table {
public:
    explicit Table(std::vector<std::string> headings) : lines_{std::move(headings)} {}
    void add(std::vector<std::string> cells) { lines_.push_back(std::move(cells)); }
    bool empty() const { return lines_.size() == 1; }
    // Columns two blanks apart, no blanks at line ends, an empty cell as "-".
    std::string text() const;
    // An array with one object a line, keyed by the headings.
    Json json() const;

private:
    std::vector<std::vector<std::string>> lines_;
};

// Lines of "NAME  VALUE", the values aligned.
std::string pairs_text(const std::vector<std::pair<std::string, std::string>> &pairs);

// Text that a terminal can show without being steered by it; newlines become "\n".
std::string printable(std::string_view text);
// How many columns of a terminal a text takes.
std::size_t width(std::string_view text);

void print(std::string_view text); // to standard output
// Writes what is still to be written; the errno of the first failure of all that was printed, or 0.
int finish_output();
void print_json(const Json &json); // to standard output, indented, with a newline
// "hostadm: SUBJECT: TEXT (error CODE)" to standard error; without a code none is said.
void print_error(std::string_view subject, std::string_view text, int code = 0);

} // namespace hostadm::cli
