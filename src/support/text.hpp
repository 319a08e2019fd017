// SPDX-License-Identifier: MIT
// Text helpers that the units share.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

namespace hostadm {

// printf into a string of whatever length the result has.
[[gnu::format(printf, 1, 2)]] std::string format(const char *pattern, ...);
std::string vformat(const char *pattern, va_list args);

// A malloc'ed copy for the caller of an exported function; NULL when memory is out.
char *duplicate(std::string_view text) noexcept;

inline bool is_empty(const char *text) {
    return text == nullptr || *text == '\0';
}
inline const char *text_or(const char *text, const char *fallback) {
    return is_empty(text) ? fallback : text;
}

inline bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// Removes trailing slashes in place but never the first character: "/" stays, "//" becomes "/".
void strip_trailing_slashes(char *path);

} // namespace hostadm
