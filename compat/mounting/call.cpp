// SPDX-License-Identifier: MIT
#include "compat/mounting/call.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

namespace compat {

bool is_system_v_call(int argc, char **argv) {
    if (argc < 3 || std::strcmp(argv[1], "-F") != 0)
        return false;
    const std::string_view type = argv[2];
    const auto is_part_of_type = [](unsigned char character) {
        return std::isalnum(character) != 0 || std::strchr("._-", character) != nullptr;
    };
    return !type.empty() && type.front() != '-' && type.front() != '.' &&
           std::all_of(type.begin(), type.end(), is_part_of_type);
}

} // namespace compat
