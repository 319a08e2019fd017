// SPDX-License-Identifier: MIT
#include "src/support/text.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace hostadm {

std::string format(const char *pattern, ...) {
    va_list args;
    va_start(args, pattern);
    std::string text;
    try {
        text = vformat(pattern, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
    return text;
}

std::string vformat(const char *pattern, va_list args) {
    va_list counting;
    va_copy(counting, args);
    const int length = std::vsnprintf(nullptr, 0, pattern, counting);
    va_end(counting);
    if (length < 0)
        throw std::bad_alloc();
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, pattern, args);
    return text;
}

char *duplicate(std::string_view text) noexcept {
    char *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy == nullptr)
        return nullptr;
    text.copy(copy, text.size()); // of nothing, too: data() may be null then
    copy[text.size()] = '\0';
    return copy;
}

void strip_trailing_slashes(char *path) {
    std::size_t length = std::strlen(path);
    while (length > 1 && path[length - 1] == '/')
        path[--length] = '\0';
}

} // namespace hostadm
