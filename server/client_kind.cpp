// SPDX-License-Identifier: MIT
#include "server/client_kind.hpp"

#include <array>

#include "base/text.hpp"
#include "hostadm.h"
#include "server/bootparams.hpp"

namespace hostadm::server {

namespace {

struct Names {
    ClientKind kind;
    const char *name, *boot_type;
    int number; // of the library, which knows the kinds by keywords such as CACHELET; 0: it has none
};

constexpr std::array all_names = {
    Names{ClientKind::diskless, "diskless", "di", 1},
    Names{ClientKind::dataless, "dataless", "da", 2},
    Names{ClientKind::diskfull, "diskfull", "df", 3},
    Names{ClientKind::cache_only, "cache-only", "ca", 4},
    Names{ClientKind::install, "install", "in", 0},
    Names{ClientKind::rpl, "rpl", "rp", 0},
    Names{ClientKind::pc, "pc", "pc", 0},
};

std::string upper_case(std::string text) {
    for (char &c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

ClientKind kind_of_word(const std::string &word) {
    int number = 0;
    get_client_index(upper_case(word).c_str(), &number);
    for (const Names &names : all_names)
        if (word == names.boot_type || base::lower_case(word) == names.name ||
            (number != 0 && number == names.number))
            return names.kind;
    return ClientKind::unknown;
}

} // namespace

std::string name_of(ClientKind kind) {
    for (const Names &names : all_names)
        if (names.kind == kind)
            return names.name;
    return "unknown";
}

std::string value_of_item(std::string_view items, std::string_view key) {
    const std::string item = item_of(items, key);
    return item.substr(item.find(':') + 1); // the whole where there is no colon
}

ClientKind kind_of(std::string_view items) {
    if (const std::string word = value_of_item(items, "boottype"); !word.empty())
        return kind_of_word(word);
    const auto has = [&](std::string_view key) { return !item_of(items, key).empty(); };
    if (has("install"))
        return ClientKind::install;
    if (has("root"))
        return ClientKind::diskless;
    return has("exec") || has("kvm") ? ClientKind::dataless : ClientKind::unknown;
}

BootparamsItem boot_type_item(ClientKind kind) {
    for (const Names &names : all_names)
        if (names.kind == kind)
            return {"boottype", "", names.boot_type};
    return {"boottype", "", "unknown"};
}

std::optional<BootparamsItem> swap_size_item(std::uint64_t bytes) {
    constexpr unsigned megabyte = 20;
    if (bytes >> megabyte == 0)
        return std::nullopt;
    return BootparamsItem{"swapsize", "", std::to_string(bytes >> megabyte)};
}

} // namespace hostadm::server
