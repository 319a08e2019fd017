// SPDX-License-Identifier: MIT
#include "base/environment.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace hostadm::base {

namespace {

bool all_in(std::string_view value, std::string_view others) {
    return std::all_of(value.begin(), value.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               others.find(c) != others.npos;
    });
}

// A word that names something, such as a locale or a terminal: with no slash it cannot name a file.
bool is_name(std::string_view value) {
    constexpr std::size_t longest = 64;
    return value.size() <= longest && !value.starts_with('.') && all_in(value, "-_.@+");
}

// Several of them, as LANGUAGE holds.
bool are_names(std::string_view value) {
    while (!value.empty()) {
        const std::size_t end = std::min(value.find(':'), value.size());
        if (!is_name(value.substr(0, end)))
            return false;
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    return true;
}

// The system's name of a time zone, or one in words; never a file.
bool is_zone(std::string_view value) {
    constexpr std::size_t longest = 64;
    return value.size() <= longest && !value.starts_with('/') && !value.starts_with('.') &&
           value.find("..") == value.npos && all_in(value, "-_+/,.<>");
}

struct Variable {
    const char *name;
    bool (*is_fit)(std::string_view value);
};

constexpr std::array handed_on {
    Variable{"LANG", is_name}, Variable{"LC_ALL", is_name}, Variable{"LC_CTYPE", is_name},
        Variable{"LC_MESSAGES", is_name}, Variable{"LANGUAGE", are_names}, Variable{"TERM", is_name},
        Variable{"TZ", is_zone}, Variable{"COLUMNS", is_name}, Variable{"HOSTADM_SANDBOX", is_name},
#if defined(__SANITIZE_ADDRESS__)
        // A build that looks for its own mistakes is told how.
        Variable{"ASAN_OPTIONS", [](std::string_view) { return true; }},
        Variable{"LSAN_OPTIONS", [](std::string_view) { return true; }},
        Variable{"UBSAN_OPTIONS", [](std::string_view) { return true; }},
#endif
};

// What the C library takes for its own, besides the variables above: where files lie that it loads.
constexpr std::array ways_to_files{"LOCPATH", "NLSPATH", "GCONV_PATH", "OUTPUT_CHARSET", "TEXTDOMAINDIR"};

} // namespace

std::vector<std::string> clean_environment() {
    std::vector<std::string> variables{std::string("PATH=") + system_path, "HOME=/"};
    for (const Variable &variable : handed_on)
        if (const char *value = std::getenv(variable.name); value != nullptr && variable.is_fit(value))
            variables.push_back(std::string(variable.name) + "=" + value);
    return variables;
}

void drop_ways_to_foreign_texts() {
    for (const char *name : ways_to_files)
        unsetenv(name);
    for (const Variable &variable : handed_on)
        if (const char *value = std::getenv(variable.name); value != nullptr && !variable.is_fit(value))
            unsetenv(variable.name);
}

} // namespace hostadm::base
