// SPDX-License-Identifier: MIT
#include "base/bootparams.hpp"

#include "base/text.hpp"

namespace hostadm::base {

BootparamsItem split_value(std::string_view value) {
    const std::size_t colon = value.find(':');
    if (colon == value.npos)
        return {.key = {}, .server = {}, .path = value};
    return {.key = {}, .server = value.substr(0, colon), .path = value.substr(colon + 1), .has_server = true};
}

std::optional<BootparamsItem> split_item(std::string_view word) {
    const std::size_t equals = word.find('=');
    if (equals == word.npos)
        return std::nullopt;
    BootparamsItem item = split_value(word.substr(equals + 1));
    item.key = word.substr(0, equals);
    return item;
}

std::optional<BootparamsItem> find_item(std::string_view items, std::string_view key) {
    for (const std::string_view word : words_of(items))
        if (const auto item = split_item(word); item && item->key == key)
            return item;
    return std::nullopt;
}

} // namespace hostadm::base
