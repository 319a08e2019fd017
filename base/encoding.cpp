// SPDX-License-Identifier: MIT
#include "base/encoding.hpp"

#include <cstdint>
#include <cstdio>

namespace hostadm::base {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

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

std::string printable(std::string_view text, Steering steering) {
    const bool readable = is_utf8(text);
    const bool questioned = steering == Steering::questioned;
    std::string shown;
    const auto spell = [&](unsigned byte) {
        char code[5];
        std::snprintf(code, sizeof code, "\\x%02x", byte);
        shown += questioned ? "?" : code;
    };
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n' && !questioned) {
            shown += "\\n";
        } else if (c == '\t' && questioned) {
            shown += c;
        } else if (byte < 0x20 || byte == 0x7f || (byte >= 0x80 && !readable)) {
            spell(byte);
        } else if (byte < 0xa0 && shown.ends_with('\xc2')) {
            // In some terminals U+0080 to U+009F steer as escape sequences do.
            shown.pop_back();
            spell(byte);
        } else {
            shown += c;
        }
    }
    return shown;
}

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
    for (; padding > 0; --padding)
        bytes.pop_back();
    return bytes;
}

} // namespace hostadm::base
