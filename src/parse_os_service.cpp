// SPDX-License-Identifier: MIT
// Splits a method's OS-service argument into its words.
#include <array>
#include <cctype>

#include "hostadm.h"

namespace {

bool is_blank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

} // namespace

int parse_os_service_par(adm_arg *arg, char **words, int count) {
    if (arg == nullptr || arg->length == 0 || arg->value == nullptr || count < 1 || words == nullptr)
        return 1;
    constexpr std::array<int, 4> place_of_word = {3, 4, 1, 2}; // the first pointer is not ours
    char *const text = arg->value;
    const std::size_t length = arg->length; // the terminator's own position is not beyond it
    std::size_t at = 0;
    for (std::size_t n = 0;;) {
        if (text[at] == '\0')
            return -1;
        while (is_blank(text[at]))
            if (++at > length)
                return 1;
        if (text[at] == '\0' || n >= place_of_word.size())
            return 1;
        words[place_of_word[n]] = text + at;
        while (text[at] != '\0' && !is_blank(text[at]))
            if (++at > length)
                return 1;
        const bool at_end = text[at] == '\0';
        text[at] = '\0';
        if (static_cast<int>(++n) == count)
            return 0;
        if (!at_end)
            ++at;
    }
}
