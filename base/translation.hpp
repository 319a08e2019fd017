// SPDX-License-Identifier: MIT
// What people read, in their language. Every text that a person sees goes through one of these functions, as a
// whole sentence: its words stand in another order elsewhere.
//
//     tr("the disk is full")
//     tr("{1} cannot be read: {2}", path, reason)              {1} is the first value, and so on
//     tr_n(count, "{1} client", "{1} clients")                 {1} is the number, {2} the first value behind
//     translatable("a text in a table")                        marks it; where it is shown: tr(entry.text)
//
// Names, keys, codes and what programs read are not translated, and no program goes by a translated text.
#pragma once

#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>

namespace hostadm::base {

// Marks a text that is looked up only where it is shown.
constexpr const char *translatable(const char *text) {
    return text;
}

// A value that stands in a text.
class Piece {
public:
    Piece(std::string_view text) : text_(text) {}
    Piece(const std::string &text) : text_(text) {}
    Piece(const char *text) : text_(text) {}
    Piece(char letter) : text_(1, letter) {}
    template <std::integral Number>
    requires(!std::same_as<Number, char>) Piece(Number number) : text_(std::to_string(number)) {}
    const std::string &text() const { return text_; }

private:
    std::string text_;
};

// The text with {1}, {2}, ... replaced by the pieces; what is no number of a piece stays as it is.
std::string filled(std::string_view text, std::initializer_list<Piece> pieces);

// The text in the language of the process's locale, in UTF-8; the text itself where there is no translation.
// It lives as long as the process, or as long as the text given.
const char *tr(const char *text);
// One of two by a number, as the language asks for.
const char *plural(unsigned long count, const char *one, const char *many);

template <typename... Values>
requires(sizeof...(Values) > 0) std::string tr(const char *text, const Values &...values) {
    return filled(tr(text), {Piece(values)...});
}

template <typename... Values>
std::string tr_n(unsigned long count, const char *one, const char *many, const Values &...values) {
    return filled(plural(count, one, many), {Piece(count), Piece(values)...});
}

// For the beginning of a program: from here on its texts are those of its user's locale, and nothing in the
// environment makes it load a file that somebody else names. Numbers and times stay those of the C locale.
void speak_the_users_language();

} // namespace hostadm::base
