// SPDX-License-Identifier: MIT
#include "support/words.hpp"

#include <algorithm>

namespace hostadm::support {

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

} // namespace hostadm::support
