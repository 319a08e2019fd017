// SPDX-License-Identifier: MIT
// A method's description as JSON, as help, and as the rule by which its arguments are checked.
//
//     {"name": "CLASS/NAME", "purpose": TEXT,
//      "arguments": [{"name": NAME, "kind": KIND, "purpose": TEXT, "required": false, "default": TEXT,
//                     "choices": [TEXT]}],
//      "outputs": [{"name": NAME, "purpose": TEXT, "required": false}],
//      "columns": [{"name": NAME, "purpose": TEXT}],
//      "edits": [TEXT], "starts": [TEXT], "shares": [TEXT],
//      "values": [{"argument": NAME, "method": "CLASS/NAME", "column": NAME}]}
//
// Everything but the names, "kind" and the purposes may be left out.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "framework/protocol/answer.hpp"
#include "framework/protocol/bytes.hpp"
#include "framework/protocol/channel.hpp"
#include "hostadm/method.hpp"
#include "hostadm/runner.hpp"

namespace hostadm::framework {

Json to_json(const method::Description &description);
// The description, or what is wrong with the text.
std::variant<method::Description, std::string> parse_description(std::string_view text);

// Checks the arguments, adds defaults, and brings values to their one spelling. Returns what was wrong with
// which argument and what is accepted; nothing when all is well. An empty value counts as none.
std::optional<std::string> check(const method::Description &description, Request &request);

// The first output that the description promises and the answer lacks.
std::optional<std::string> missing_output(const method::Description &description, const Answer &answer);

} // namespace hostadm::framework
