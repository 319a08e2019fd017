// SPDX-License-Identifier: MIT
// Bytes as text: what is UTF-8, and base64 for what is not.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hostadm::base {

bool is_utf8(std::string_view bytes);

std::string to_base64(std::string_view bytes);
// Nothing for what is no base64.
std::optional<std::string> from_base64(std::string_view text);

} // namespace hostadm::base
