// SPDX-License-Identifier: MIT
// Items of a bootparams entry, as they are written in it: words KEY=SERVER:PATH, or KEY=VALUE without a
// server.
#pragma once

#include <optional>
#include <string_view>

namespace hostadm::base {

// The parts point into the text that was split.
struct BootparamsItem {
    std::string_view key;
    std::string_view server; // empty: none
    std::string_view path;   // or the value, when there is no server
    bool has_server = false; // also one that is empty, as in "KEY=:PATH"
};

// SERVER:PATH or VALUE, without a key.
BootparamsItem split_value(std::string_view value);
// Nothing for a word without an equals sign.
std::optional<BootparamsItem> split_item(std::string_view word);
// The first word of an item list that has exactly this key.
std::optional<BootparamsItem> find_item(std::string_view items, std::string_view key);

} // namespace hostadm::base
