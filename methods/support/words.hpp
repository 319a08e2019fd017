// SPDX-License-Identifier: MIT
// The words of a table's line, parted by blanks. What is returned points into the text given.
#pragma once

#include <string_view>
#include <vector>

namespace hostadm::support {

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trimmed_end(std::string_view text);
std::string_view trimmed(std::string_view text);
std::string_view first_word(std::string_view text);
std::vector<std::string_view> words_of(std::string_view text);

} // namespace hostadm::support
