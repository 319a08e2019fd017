// SPDX-License-Identifier: MIT
// Bytes as text: what is UTF-8, base64 for what is not, and what a terminal may be shown.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hostadm::base {

bool is_utf8(std::string_view bytes);

// Text that a terminal can show without being steered by it: what would is spelt out as in a C string, or
// becomes a question mark (and a tab is left).
enum class Steering { spelt_out, questioned };
std::string printable(std::string_view text, Steering steering = Steering::spelt_out);

std::string to_base64(std::string_view bytes);
// Nothing for what is no base64.
std::optional<std::string> from_base64(std::string_view text);

} // namespace hostadm::base
