// SPDX-License-Identifier: MIT
#include "framework/protocol/bytes.hpp"

#include <algorithm>
#include <array>

#include "base/encoding.hpp"

namespace hostadm::framework {

namespace {

// What is said here nests three deep. The JSON library copies what it has read by calling itself, so that
// depth is a matter of the stack.
constexpr int deepest = 32;

bool is_too_deep(std::string_view text) {
    int depth = 0;
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (in_string && c == '\\')
            ++at;
        else if (c == '"')
            in_string = !in_string;
        else if (!in_string && (c == '[' || c == '{') && ++depth > deepest)
            return true;
        else if (!in_string && (c == ']' || c == '}'))
            --depth;
    }
    return false;
}

} // namespace

Json parse_json(std::string_view text) {
    return is_too_deep(text) ? Json(Json::value_t::discarded) : Json::parse(text, nullptr, false);
}

Json to_json(std::string_view bytes) {
    if (base::is_utf8(bytes))
        return Json(bytes);
    Json wrapped = Json::object();
    wrapped["base64"] = base::to_base64(bytes);
    return wrapped;
}

std::size_t plain_length(std::string_view text) {
    static constexpr auto is_plain = [] {
        std::array<bool, 256> table{};
        for (std::size_t c = 0x20; c < 0x7f; ++c)
            table[c] = c != '"' && c != '\\';
        return table;
    }();
    std::size_t length = 0;
    while (length < text.size() && is_plain[static_cast<unsigned char>(text[length])])
        ++length;
    return length;
}

void append_json(std::string &text, std::string_view bytes) {
    if (plain_length(bytes) == bytes.size())
        text.append(1, '"').append(bytes).append(1, '"');
    else
        text += to_json(bytes).dump();
}

std::optional<std::string> from_json(const Json &value) {
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_number() || value.is_boolean())
        return value.dump();
    if (value.is_object() && value.size() == 1 && value.contains("base64") && value["base64"].is_string())
        return base::from_base64(value["base64"].get_ref<const std::string &>());
    return std::nullopt;
}

} // namespace hostadm::framework
