// SPDX-License-Identifier: MIT
// Any text as an OS-service argument. The first byte is the count of words wanted, the second how much
// shorter than the text the value's length is.
//
// What must hold: the result, the words, their places and the cut-up text are those of a plain rendering of
// the rules, which looks at one position after the other and moves nothing.
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "hostadm.h"

namespace {

struct Outcome {
    int result = 0;
    std::array<long, 5> places = {-1, -1, -1, -1, -1}; // where a word begins; -1: not stored
    std::string text;                                  // after the call
    bool operator==(const Outcome &) const = default;
};

enum class Kind { blank, letter, end, beyond };

// What stands at a position counted from 1; the terminator's own is not beyond the length.
Kind at(const std::string &text, std::size_t length, std::size_t position) {
    if (position > length + 1)
        return Kind::beyond;
    if (position > text.size())
        return Kind::end;
    return std::isspace(static_cast<unsigned char>(text[position - 1])) != 0 ? Kind::blank : Kind::letter;
}

Outcome plain(const std::string &text, std::size_t length, int count) {
    constexpr std::array<std::size_t, 4> place_of = {3, 4, 1, 2};
    Outcome outcome;
    outcome.text = text;
    const auto ended = [&](int result) {
        outcome.result = result;
        return outcome;
    };
    if (length == 0 || count < 1)
        return ended(1);
    std::size_t position = 1;
    for (int words = 0; words < count; ++words) {
        if (position > text.size())
            return ended(-1); // between words only the text's own end counts
        while (std::isspace(static_cast<unsigned char>(text[position - 1])) != 0) {
            const Kind next = at(text, length, ++position);
            if (next == Kind::beyond || next == Kind::end)
                return ended(1);
        }
        if (words == static_cast<int>(place_of.size()))
            return ended(1);
        outcome.places[place_of[static_cast<std::size_t>(words)]] = static_cast<long>(position) - 1;
        Kind kind = Kind::letter;
        while (kind == Kind::letter)
            kind = at(text, length, ++position);
        if (kind == Kind::beyond)
            return ended(1);
        if (kind == Kind::blank)
            outcome.text[position++ - 1] = '\0';
    }
    return ended(0);
}

Outcome library(const std::string &text, std::size_t length, int count) {
    // A copy of exactly the text's size, so that a step beyond its end is seen.
    std::vector<char> copy(text.begin(), text.end());
    copy.push_back('\0');
    std::array<char *, 5> words{};
    adm_arg arg = {"os_service", ADM_STRING, static_cast<unsigned int>(length), copy.data()};
    Outcome outcome;
    outcome.result = parse_os_service_par(&arg, words.data(), count);
    for (std::size_t i = 0; i < words.size(); ++i)
        if (words[i] != nullptr)
            outcome.places[i] = words[i] - copy.data();
    outcome.text.assign(copy.data(), text.size());
    return outcome;
}

void show(const char *whose, const Outcome &outcome) {
    std::fprintf(stderr, "%s: result %d, words at", whose, outcome.result);
    for (const long place : outcome.places)
        std::fprintf(stderr, " %ld", place);
    std::fprintf(stderr, "\n");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 2)
        return 0;
    const int count = static_cast<int>(data[0] % 8) - 1;
    std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    text = text.c_str(); // up to a NUL
    const std::size_t shorter = data[1] % (text.size() + 1);
    const std::size_t length = text.size() - shorter;
    const Outcome ours = library(text, length, count), theirs = plain(text, length, count);
    if (ours != theirs) {
        std::fprintf(stderr, "text \"%s\", length %zu, count %d\n", text.c_str(), length, count);
        show("library", ours);
        show("plain rules", theirs);
        std::abort();
    }
    return 0;
}
