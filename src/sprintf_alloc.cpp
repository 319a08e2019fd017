// SPDX-License-Identifier: MIT
// Formatted text in a newly allocated string of exactly the size that it needs.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "hostadm.h"

namespace {

// Formatted output goes here to be counted. Opened once and kept for the life of the process.
std::FILE *null_sink() {
    static std::FILE *sink = nullptr;
    if (sink == nullptr)
        sink = std::fopen("/dev/null", "we");
    return sink;
}

int formatted_length(const char *format, va_list args) {
    std::FILE *sink = null_sink();
    return sink != nullptr ? std::vfprintf(sink, format, args) : std::vsnprintf(nullptr, 0, format, args);
}

} // namespace

int sprintf_alloc(char **result, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsprintf_alloc(result, format, args);
    va_end(args);
    return length;
}

int vsprintf_alloc(char **result, const char *format, va_list args) {
    va_list counting;
    va_copy(counting, args);
    const int length = formatted_length(format, counting);
    va_end(counting);

    *result = nullptr;
    if (length < 0)
        return 0;
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    char *text = static_cast<char *>(std::malloc(size));
    if (text == nullptr)
        return 0;
    std::vsnprintf(text, size, format, args);
    *result = text;
    return length;
}
