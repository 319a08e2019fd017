// SPDX-License-Identifier: MIT
// Text in the columns of a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace hostadm::base {

// How many columns of a terminal a text takes.
std::size_t width(std::string_view text);

// The text with blanks behind it, so that it takes these columns at least.
std::string padded(std::string_view text, std::size_t columns);

// How many columns a reader's lines have: as COLUMNS says, or the terminal, or else 80.
std::size_t columns_of_reader();

// The text behind its heading, broken at blanks so that no line takes more columns than said, but for a word
// that is longer; every further line begins where the text began. 0 columns: it is not broken.
std::string with_hanging_text(std::string_view heading, std::string_view text, std::size_t columns);

} // namespace hostadm::base
