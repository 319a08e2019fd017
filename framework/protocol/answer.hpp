// SPDX-License-Identifier: MIT
// What a method answers: JSON objects, one a line.
//
//     {"begin": "CLASS/NAME"}               a checked run has begun; {"end": STATUS} is then expected
//     {"output": NAME, "value": VALUE}      an output argument; a later one of the same name takes its place
//     {"row": {NAME: VALUE, ...}}           a row, columns in this order
//     {"error": CODE, "text": TEXT}         an error record; code 0 withdraws the records before it
//     {"mark": 1}                           nothing is left half done
//     {"mark": 2, "text": TEXT}             something is left half done; the text says what, if it is known
//     {"invalid": TEXT}                     an argument was refused and nothing was done
//     {"end": STATUS}                       the run has come to its end
//     {"outcome": STATUS, "reason": TEXT}   from another host: how the run there was judged (0, 1 or 2)
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/protocol/channel.hpp"
#include "framework/protocol/rows.hpp"

namespace hostadm::framework {

// Codes of failures that no method recorded.
inline constexpr int cannot_run = 101;       // unknown, not executable, crashed, or its answer makes no sense
inline constexpr int invalid_argument = 102; // an argument was refused, nothing was done

struct ErrorRecord {
    int code = 0;
    std::string text;
    bool operator==(const ErrorRecord &) const = default;
};

struct Answer {
    Values outputs;
    Rows rows;
    std::vector<ErrorRecord> errors;
    bool dirty = false;                   // the last mark said so
    std::vector<std::string> left_undone; // what is left half done, in the method's words
    std::optional<std::string> invalid;   // why an argument was refused
    bool begun = false;
    std::optional<int> ended;
    std::optional<int> outcome;
    std::string reason;
    std::string defect; // the first line that is none of the above, in words; empty: there is none

    bool half_done() const { return dirty || !left_undone.empty(); }
    const std::string *output(std::string_view name) const;
};

// Takes every line that is good, whatever stands between them.
Answer parse_answer(std::string_view text);

// The lines that parse_answer makes the same answer of.
std::string to_lines(const Answer &answer);

// A line each, its line break included.
std::string begin_line(std::string_view method);
std::string output_line(std::string_view name, std::string_view value);
std::string row_line(std::span<const Rows::Field> fields);
std::string error_line(int code, std::string_view text);
std::string mark_line(int mark, std::string_view text = {});
std::string invalid_line(std::string_view text);
std::string end_line(int status);
std::string outcome_line(int status, std::string_view reason);

// A row line behind what is there; of several fields with one name the last counts.
void append_row_line(std::string &lines, std::span<const Rows::Field> fields);

// What an argument, an output or a column may be called.
bool is_name(std::string_view name);

} // namespace hostadm::framework
