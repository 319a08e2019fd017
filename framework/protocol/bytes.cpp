// SPDX-License-Identifier: MIT
#include "framework/protocol/bytes.hpp"

#include <array>
#include <cstdint>

namespace hostadm::framework {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string to_base64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const auto byte = [&](std::size_t offset) -> std::uint32_t {
            return at + offset < bytes.size() ? static_cast<unsigned char>(bytes[at + offset]) : 0;
        };
        const std::uint32_t group = byte(0) << 16 | byte(1) << 8 | byte(2);
        text += alphabet[group >> 18];
        text += alphabet[group >> 12 & 63];
        text += at + 1 < bytes.size() ? alphabet[group >> 6 & 63] : '=';
        text += at + 2 < bytes.size() ? alphabet[group & 63] : '=';
    }
    return text;
}

std::optional<std::string> from_base64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=')
        ++padding;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t at = 0; at < text.size(); at += 4) {
        std::uint32_t group = 0;
        for (std::size_t offset = 0; offset < 4; ++offset) {
            const std::size_t place = at + offset;
            std::size_t digit = 0;
            if (place < text.size() - padding) {
                digit = alphabet.find(text[place]);
                if (digit == alphabet.npos)
                    return std::nullopt;
            }
            group = group << 6 | static_cast<std::uint32_t>(digit);
        }
        bytes += static_cast<char>(group >> 16 & 255);
        bytes += static_cast<char>(group >> 8 & 255);
        bytes += static_cast<char>(group & 255);
    }
    bytes.resize(bytes.size() - padding);
    return bytes;
}

} // namespace

bool is_utf8(std::string_view bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const auto byte = [&](std::size_t offset) { return static_cast<unsigned char>(bytes[at + offset]); };
        const unsigned first = byte(0);
        if (first < 0x80) {
            ++at;
            continue;
        }
        const std::size_t length = first >= 0xc2 && first <= 0xdf   ? 2
                                   : first >= 0xe0 && first <= 0xef ? 3
                                   : first >= 0xf0 && first <= 0xf4 ? 4
                                                                    : 0;
        if (length == 0 || at + length > bytes.size())
            return false;
        for (std::size_t offset = 1; offset < length; ++offset)
            if ((byte(offset) & 0xc0) != 0x80)
                return false;
        // Overlong forms, surrogates, and what lies beyond the last character.
        if ((first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
            (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f))
            return false;
        at += length;
    }
    return true;
}

Json to_json(std::string_view bytes) {
    if (is_utf8(bytes))
        return Json(bytes);
    Json wrapped = Json::object();
    wrapped["base64"] = to_base64(bytes);
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
        return from_base64(value["base64"].get_ref<const std::string &>());
    return std::nullopt;
}

} // namespace hostadm::framework
