// SPDX-License-Identifier: MIT
// The method's end of a run. Descriptor 3 is a sealed memory file with the request:
//
//     {"hostadm": 1, "method": "CLASS/NAME", "arguments": {"NAME": VALUE, ...}}
//
// Descriptor 4 is a memory file opened for appending;
// each line of the answer is one JSON object (see answer.hpp).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hostadm::framework {

inline constexpr int request_descriptor = 3;
inline constexpr int answer_descriptor = 4;

using Values = std::vector<std::pair<std::string, std::string>>;

struct Request {
    std::string method; // CLASS/NAME
    Values arguments;

    const std::string *find(std::string_view name) const;
};

std::string to_text(const Request &request);
std::optional<Request> parse_request(std::string_view text);

// A memory file holding the text; -1 and errno when it cannot be made. Nobody can change it any more.
int sealed_file(std::string_view text);

// The request of the method that this process is; nothing in any other process.
std::optional<Request> read_request();
// Makes adm_args_geti and `hostadm arg get` see these arguments from now on.
bool replace_request(const Request &request);

// Adds whole lines to the answer. False when this process is no method or they could not be stored.
bool append_answer(std::string_view lines);
// What has been answered so far.
std::optional<std::string> read_answer();

} // namespace hostadm::framework
