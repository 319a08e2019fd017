// SPDX-License-Identifier: MIT
#include "base/text.hpp"

#include <algorithm>
#include <cctype>

namespace hostadm::base {

std::string_view trimmed_end(std::string_view text) {
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    return trimmed_end(text);
}

std::string_view first_word(std::string_view text) {
    return {text.begin(), std::find_if(text.begin(), text.end(), is_blank)};
}

std::vector<std::string_view> words_of(std::string_view text) {
    std::vector<std::string_view> words;
    for (text = trimmed(text); !text.empty(); text = trimmed(text.substr(words.back().size())))
        words.push_back(first_word(text));
    return words;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == text.npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

std::string_view last_component(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

std::string joined(const std::vector<std::string> &words, std::string_view separator) {
    std::string all;
    for (const std::string &word : words)
        all.append(all.empty() ? "" : separator).append(word);
    return all;
}

std::string_view last_line(std::string_view text) {
    std::string_view last;
    for_each_line(text, [&](std::string_view line) {
        if (!trimmed(line).empty())
            last = trimmed(line);
    });
    return last;
}

std::string lower_case(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

} // namespace hostadm::base
