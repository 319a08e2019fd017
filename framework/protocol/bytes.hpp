// SPDX-License-Identifier: MIT
// Values are bytes, JSON strings are UTF-8: how a value crosses between them without loss.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace hostadm::framework {

// Keeps the order in which the fields of a row were given.
using Json = nlohmann::ordered_json;

// Reads a text of somebody else's: discarded when it is no JSON, or nested deeper than anything that is said
// here.
Json parse_json(std::string_view text);

// A string, or {"base64": "..."} when the bytes are no UTF-8.
Json to_json(std::string_view bytes);
// The same as text, behind what is there.
void append_json(std::string &text, std::string_view bytes);
// How many characters from the start on stand for themselves between the quotes of a JSON string.
std::size_t plain_length(std::string_view text);
// The bytes of either form, of a number or of a truth value; nothing for anything else.
std::optional<std::string> from_json(const Json &value);

} // namespace hostadm::framework
