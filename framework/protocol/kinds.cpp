// SPDX-License-Identifier: MIT
#include "framework/protocol/kinds.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <limits.h>
#include <vector>

#include "base/translation.hpp"

namespace hostadm::framework {

namespace {

using method::Argument;
using method::Kind;

constexpr std::size_t longest_value = 65535; // a shell command line takes one word of twice that
constexpr std::size_t longest_word = 4095;

struct KindOf {
    Kind kind;
    std::string_view name;
    const char *accepted;
};

constexpr std::array kinds{
    KindOf{Kind::host, "host",
           base::translatable("a host name of letters, digits, \"-\", \"_\" and \".\", beginning with a "
                              "letter or digit, at most 255 characters")},
    KindOf{Kind::hosts, "hosts", base::translatable("host names separated by blanks or commas")},
    KindOf{Kind::address, "address", base::translatable("an IPv4 address such as 192.168.1.7")},
    KindOf{
        Kind::ethernet, "ethernet",
        base::translatable(
            "an Ethernet address such as 8:0:20:1:2:3, 08-00-20-01-02-03, 0800.2001.0203 or 080020010203")},
    KindOf{Kind::path, "path",
           base::translatable("an absolute path without blanks, \"..\" or characters that the shell takes "
                              "apart, at most 4095 characters")},
    KindOf{Kind::device, "device", base::translatable("an absolute path, HOST:/PATH, a word, or \"-\"")},
    KindOf{Kind::options, "options",
           base::translatable("a list of options such as rw=client1,anon=0, of letters, digits and = , . _ : "
                              "@ / + % -, not beginning with \"-\"")},
    KindOf{Kind::release, "release", base::translatable("a release number such as 2.5 or 4.1.3")},
    KindOf{Kind::word, "word",
           base::translatable("one word of letters, digits and + - _ . : , @ %, not beginning with \"-\"")},
    KindOf{Kind::number, "number", base::translatable("a decimal number, not negative")},
    KindOf{Kind::size, "size", base::translatable("a number of bytes, with k, m or g behind it if wanted")},
    KindOf{Kind::choice, "choice", base::translatable("one of its choices")},
    KindOf{Kind::yes_no, "yes_no", base::translatable("yes or no")},
    KindOf{Kind::text, "text", base::translatable("text on one line, at most 65535 characters")},
    KindOf{Kind::words, "words",
           base::translatable("words of letters, digits and + - _ . : , @ % / =, with blanks between them")},
};

const KindOf &entry(Kind kind) {
    return *std::find_if(kinds.begin(), kinds.end(), [&](const KindOf &one) { return one.kind == kind; });
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
bool is_alnum(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool all_in(std::string_view value, std::string_view others) {
    return std::all_of(value.begin(), value.end(),
                       [&](char c) { return is_alnum(c) || others.find(c) != others.npos; });
}

bool is_host(std::string_view value) {
    return !value.empty() && value.size() <= 255 && is_alnum(value.front()) && all_in(value, "-_.") &&
           value.find("..") == value.npos;
}

bool are_hosts(std::string_view value) {
    std::size_t hosts = 0;
    while (!value.empty()) {
        const std::size_t end = std::min(value.find_first_of(" ,"), value.size());
        if (end > 0 && !is_host(value.substr(0, end)))
            return false;
        hosts += end > 0;
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    return hosts > 0;
}

bool is_address(std::string_view value) {
    in_addr address{};
    return value.find('\0') == value.npos && inet_pton(AF_INET, std::string(value).c_str(), &address) == 1;
}

// The six numbers of an Ethernet address in any usual spelling.
std::optional<std::array<std::uint8_t, 6>> ethernet(std::string_view value) {
    const auto hex = [](char c) {
        return is_digit(c)            ? c - '0'
               : c >= 'a' && c <= 'f' ? c - 'a' + 10
               : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                      : -1;
    };
    const std::size_t mark = value.find_first_of(":-.");
    const char separator = mark == value.npos ? '\0' : value[mark];
    // Six groups of one or two digits, three of exactly four, or twelve digits in a row.
    std::vector<std::string_view> groups;
    for (std::string_view rest = value;;) {
        const std::size_t end = separator == '\0' ? rest.npos : rest.find(separator);
        groups.push_back(rest.substr(0, end));
        if (end == rest.npos)
            break;
        rest.remove_prefix(end + 1);
    }
    std::string digits;
    for (const std::string_view group : groups) {
        if (!std::all_of(group.begin(), group.end(), [&](char c) { return hex(c) >= 0; }))
            return std::nullopt;
        if (groups.size() == 6 && (group.size() == 1 || group.size() == 2))
            digits.append(2 - group.size(), '0').append(group);
        else if (groups.size() == 3 && separator != ':' && group.size() == 4)
            digits.append(group);
        else if (groups.size() == 1)
            digits.append(group);
        else
            return std::nullopt;
    }
    if (digits.size() != 12)
        return std::nullopt;
    std::array<std::uint8_t, 6> bytes{};
    for (std::size_t at = 0; at < bytes.size(); ++at)
        bytes[at] = static_cast<std::uint8_t>(hex(digits[2 * at]) * 16 + hex(digits[2 * at + 1]));
    return bytes;
}

bool is_path(std::string_view value) {
    if (value.empty() || value.front() != '/' || value.size() >= PATH_MAX)
        return false;
    for (const char c : value)
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f ||
            std::string_view("\"'`$\\|&;()<>*?[]{}!#~^").find(c) != std::string_view::npos)
            return false;
    for (std::string_view rest = value; !rest.empty();) {
        rest.remove_prefix(1);
        const std::string_view component = rest.substr(0, rest.find('/'));
        if (component == ".." || component.size() > NAME_MAX)
            return false;
        rest.remove_prefix(component.size());
    }
    return true;
}

bool is_word(std::string_view value) {
    return value == "-" || (!value.empty() && value.size() <= longest_word && value.front() != '-' &&
                            all_in(value, "+-_.:,@%"));
}

bool is_device(std::string_view value) {
    const std::size_t colon = value.find(":/");
    return is_path(value) || is_word(value) ||
           (colon != value.npos && is_host(value.substr(0, colon)) && is_path(value.substr(colon + 1)));
}

bool is_release(std::string_view value) {
    return !value.empty() && value.size() <= 64 && is_digit(value.front()) && all_in(value, "._") &&
           value.back() != '.' && value.find("..") == value.npos;
}

bool is_number(std::string_view value) {
    return !value.empty() && value.size() <= 18 && std::all_of(value.begin(), value.end(), is_digit);
}

bool is_size(std::string_view value) {
    if (!value.empty() && std::string_view("kmgKMG").find(value.back()) != std::string_view::npos)
        value.remove_suffix(1);
    return is_number(value);
}

bool is_text(std::string_view value) {
    return std::none_of(value.begin(), value.end(), [](char c) {
        return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == 0x7f;
    });
}

} // namespace

std::string_view kind_name(Kind kind) {
    return entry(kind).name;
}

std::optional<Kind> kind_called(std::string_view name) {
    for (const KindOf &one : kinds)
        if (one.name == name)
            return one.kind;
    return std::nullopt;
}

std::string accepted(const Argument &argument) {
    if (argument.kind != Kind::choice)
        return base::tr(entry(argument.kind).accepted);
    std::string text;
    for (std::size_t at = 0; at < argument.choices.size(); ++at)
        if (at > 0 && at + 1 == argument.choices.size())
            text = base::tr("{1} or {2}", text, argument.choices[at]);
        else
            text += (at == 0 ? "" : ", ") + argument.choices[at];
    return text;
}

bool is_accepted(const Argument &argument, std::string_view value) {
    if (value.size() > longest_value)
        return false;
    switch (argument.kind) {
    case Kind::host:
        return is_host(value);
    case Kind::hosts:
        return are_hosts(value);
    case Kind::address:
        return is_address(value);
    case Kind::ethernet:
        return ethernet(value).has_value();
    case Kind::path:
        return is_path(value);
    case Kind::device:
        return is_device(value);
    case Kind::options:
        return value == "-" || (!value.empty() && value.front() != '-' && all_in(value, "=,._:@/+%-"));
    case Kind::release:
        return is_release(value);
    case Kind::word:
        return is_word(value);
    case Kind::number:
        return is_number(value);
    case Kind::size:
        return is_size(value);
    case Kind::choice:
        return std::find(argument.choices.begin(), argument.choices.end(), value) != argument.choices.end();
    case Kind::yes_no:
        return value == "yes" || value == "no";
    case Kind::text:
        return is_text(value);
    case Kind::words:
        return !value.empty() && all_in(value, " +-_.:,@%/=");
    }
    return false;
}

std::string one_spelling(Kind kind, std::string_view value) {
    const auto bytes = kind == Kind::ethernet ? ethernet(value) : std::nullopt;
    if (!bytes)
        return std::string(value);
    constexpr std::string_view hex = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : *bytes) {
        text += text.empty() ? "" : ":";
        text += hex[byte >> 4];
        text += hex[byte & 15];
    }
    return text;
}

} // namespace hostadm::framework
