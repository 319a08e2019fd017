// SPDX-License-Identifier: MIT
// The method's end of a run. Descriptor 3 is a sealed memory file with the request:
//
//     {"hostadm": 1, "method": "CLASS/NAME", "arguments": {"NAME": VALUE, ...}}
//
// Descriptor 4 is a memory file opened for appending;
// each line of the answer is one JSON object (see answer.hpp).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hostadm/runner.hpp"

namespace hostadm::framework {

inline constexpr int request_descriptor = 3;
inline constexpr int answer_descriptor = 4;

std::string to_text(const Request &request);

// A memory file holding the text; -1 and errno when it cannot be made. Nobody can change it any more.
int sealed_file(std::string_view text);

// Adds whole lines to the answer. False when this process is no method or they could not be stored.
bool append_answer(std::string_view lines);
// What has been answered so far.
std::optional<std::string> read_answer();

} // namespace hostadm::framework
