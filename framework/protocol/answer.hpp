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

#include <span>
#include <string>
#include <string_view>

#include "framework/protocol/channel.hpp"
#include "hostadm/runner.hpp"

namespace hostadm::framework {

// parse_answer (in the header of the runner) takes every line that is good, whatever stands between them.
// These are the lines that it makes the same answer of.
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

} // namespace hostadm::framework
