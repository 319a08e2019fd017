// SPDX-License-Identifier: MIT
// Text as tables hold it: lines, and words parted by blanks. A view that is returned points into the text
// given.
#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::base {

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trimmed_end(std::string_view text);
std::string_view trimmed(std::string_view text);
std::string_view first_word(std::string_view text);
std::vector<std::string_view> words_of(std::string_view text);

// Of a text that is gone before the views are looked at: not at all.
std::vector<std::string_view> words_of(std::same_as<std::string> auto &&text) = delete;

// The parts between separators, empty ones too; of an empty text one empty part.
std::vector<std::string_view> split(std::string_view text, char separator);
std::vector<std::string_view> split(std::same_as<std::string> auto &&text, char separator) = delete;
// What stands behind the last slash of a path.
std::string_view last_component(std::string_view path);

// The last line that is not blank, trimmed; of what a program said that is most often its complaint.
std::string_view last_line(std::string_view text);

std::string lower_case(std::string_view text);
std::string joined(const std::vector<std::string> &words, std::string_view separator = ", ");

// Calls use(line) for every line of a text, without its newline.
template <typename Use> void for_each_line(std::string_view text, Use use) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        use(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
}

} // namespace hostadm::base
