// SPDX-License-Identifier: MIT
#include "base/columns.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cwchar>
#include <sys/ioctl.h>
#include <unistd.h>

namespace hostadm::base {

namespace {

constexpr std::size_t usual = 80;
constexpr std::size_t fewest = 20; // what is narrower than this is not read by a person

} // namespace

std::size_t width(std::string_view text) {
    const auto takes_one = [](char c) { return c >= ' ' && c <= '~'; };
    if (std::all_of(text.begin(), text.end(), takes_one))
        return text.size();
    std::size_t columns = 0;
    std::mbstate_t state{};
    while (!text.empty()) {
        wchar_t character = 0;
        std::size_t bytes = std::mbrtowc(&character, text.data(), text.size(), &state);
        // Outside the locale's characters a byte takes a column.
        if (bytes == 0 || bytes > text.size()) {
            state = {};
            bytes = 1;
            ++columns;
        } else {
            const int wide = wcwidth(character);
            columns += wide < 0 ? 1 : static_cast<std::size_t>(wide);
        }
        text.remove_prefix(bytes);
    }
    return columns;
}

std::string padded(std::string_view text, std::size_t columns) {
    return std::string(text) + std::string(columns - std::min(columns, width(text)), ' ');
}

std::size_t columns_of_reader() {
    std::size_t columns = 0;
    if (const char *said = std::getenv("COLUMNS"); said != nullptr) {
        const std::string_view digits = said;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), columns);
        if (error != std::errc() || end != digits.data() + digits.size())
            columns = 0;
    }
    winsize window{};
    if (columns == 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0)
        columns = window.ws_col;
    return columns == 0 ? usual : std::max(columns, fewest);
}

std::string with_hanging_text(std::string_view heading, std::string_view text, std::size_t columns) {
    const std::size_t indent = width(heading);
    std::string all(heading);
    if (columns == 0 || indent + width(text) <= columns)
        return all.append(text);
    // Where the heading leaves no room to speak of, the text stands below it.
    const std::size_t start = columns >= indent + fewest ? indent : 4;
    std::size_t at = start;
    bool is_first = true;
    if (start != indent)
        all += '\n' + std::string(start, ' ');
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        const std::string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t wide = width(word);
        if (!is_first && at + 1 + wide > columns) {
            all += '\n' + std::string(start, ' ');
            at = start;
        } else if (!is_first) {
            all += ' ';
            ++at;
        }
        all += word;
        at += wide;
        is_first = false;
    }
    return all;
}

} // namespace hostadm::base
