// SPDX-License-Identifier: MIT
#include "cli/shell_words.hpp"

namespace hostadm::cli {

namespace {

constexpr std::string_view escaped_in_double_quotes = "\"\\$`";

bool is_plain(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           static_cast<unsigned char>(c) >= 0x80 ||
           std::string_view("_./=:,@%+-").find(c) != std::string_view::npos;
}

} // namespace

ShellWords shell_words(std::string_view line, char quote) {
    ShellWords read{.words = {}, .quote = quote, .in_word = false};
    if (quote != 0) {
        read.words.emplace_back();
        read.in_word = true;
    }
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (read.quote == 0 && (c == ' ' || c == '\t' || c == '\n')) {
            read.in_word = false;
            continue;
        }
        if (!read.in_word)
            read.words.emplace_back();
        read.in_word = true;
        const bool escapes =
            c == '\\' && at + 1 < line.size() &&
            (read.quote == 0 ||
             (read.quote == '"' && escaped_in_double_quotes.find(line[at + 1]) != std::string_view::npos));
        if (escapes)
            read.words.back() += line[++at];
        else if (c == read.quote)
            read.quote = 0;
        else if (read.quote == 0 && (c == '\'' || c == '"'))
            read.quote = c;
        else
            read.words.back() += c;
    }
    return read;
}

std::string quoted_for_shell(std::string_view text, char quote) {
    std::string quoted;
    for (const char c : text) {
        if (quote == '\'' && c == '\'')
            quoted += "'\\''";
        else if (quote == '"' && c == '!')
            quoted += "\"'!'\""; // an interactive shell takes it for a command of its history
        else if ((quote == '"' && escaped_in_double_quotes.find(c) != std::string_view::npos) ||
                 (quote == 0 && !is_plain(c)))
            quoted += std::string("\\") + c;
        else
            quoted += c;
    }
    return quoted;
}

} // namespace hostadm::cli
