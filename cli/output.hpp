// SPDX-License-Identifier: MIT
// Printing for people and for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/encoding.hpp"

namespace hostadm::cli {

// Keeps the order in which the columns of a row were given.
using Json = nlohmann::ordered_json;

// A string, or {"base64": "..."} when the bytes are no UTF-8.
Json to_json(std::string_view bytes);

// An aligned table with a line of headings.
class Table {
public:
    explicit Table(std::vector<std::string> headings) : lines_{std::move(headings)} {}
    void add(std::vector<std::string> cells) { lines_.push_back(std::move(cells)); }
    bool empty() const { return lines_.size() == 1; }
    // Columns two blanks apart, no blanks at line ends, an empty cell as "-". The last cell of a line is
    // broken so that the line takes no more columns than said; 0: it is not.
    std::string text(std::size_t columns = 0) const;
    // An array with one object a line, keyed by the headings.
    Json json() const;

private:
    std::vector<std::vector<std::string>> lines_;
};

// Lines of "NAME  VALUE", the values aligned.
std::string pairs_text(const std::vector<std::pair<std::string, std::string>> &pairs);

using base::printable;

void print(std::string_view text); // to standard output
// Writes what is still to be written; the errno of the first failure of all that was printed, or 0.
int finish_output();
void print_json(const Json &json); // to standard output, indented, with a newline
// "hostadm: SUBJECT: TEXT (error CODE)" to standard error; without a code none is said.
void print_error(std::string_view subject, std::string_view text, int code = 0);

} // namespace hostadm::cli
