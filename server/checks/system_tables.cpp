// SPDX-License-Identifier: MIT
#include "server/checks/system_tables.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>

#include "base/text.hpp"
#include "hostadm/table_edit.hpp"
#include "server/bootparams_text.hpp"

namespace hostadm::server {

namespace {

template <typename Value> KeyTable parse_keys(TableText file, Value value_of) {
    KeyTable table;
    table.file = std::move(file);
    std::size_t number = 0;
    base::for_each_line(table.file.text, [&](std::string_view line) {
        ++number;
        const auto words = base::words_of(line.substr(0, line.find('#')));
        if (words.empty())
            return;
        KeyLine parsed{number, std::string(words[0]), value_of(std::string(words[0])), {}};
        for (std::size_t i = 1; i < words.size(); ++i)
            parsed.names.emplace_back(words[i]);
        if (parsed.names.empty())
            parsed.value.clear();
        const std::size_t place = table.lines.size();
        if (!parsed.value.empty()) {
            table.by_value[parsed.value].push_back(place);
            for (const std::string &name : parsed.names) {
                auto &places = table.by_name[base::lower_case(name)];
                if (places.empty() || places.back() != place)
                    places.push_back(place);
            }
        }
        table.lines.push_back(std::move(parsed));
    });
    return table;
}

std::vector<const KeyLine *> lines_of(const KeyTable &table, const auto &index, const std::string &key) {
    std::vector<const KeyLine *> found;
    if (const auto places = index.find(key); places != index.end())
        for (const std::size_t place : places->second)
            found.push_back(&table.lines[place]);
    return found;
}

BootItem parse_item(std::string_view word) {
    BootItem item;
    item.text = word;
    const std::size_t equals = word.find('=');
    item.key = word.substr(0, equals);
    if (equals == word.npos)
        return item;
    const std::string_view value = word.substr(equals + 1);
    const std::size_t colon = value.find(':');
    item.has_server = colon != value.npos;
    item.server = item.has_server ? value.substr(0, colon) : "";
    item.path = item.has_server ? value.substr(colon + 1) : value;
    return item;
}

} // namespace

TableText read_table(const std::string &path) {
    TableText file{path, 0, {}};
    const int status = tables::read_file(path, file.text);
    file.error = status == tables::no_such_line ? ENOENT : -status;
    return file;
}

std::string KeyTable::place(std::size_t line) const {
    return file.path + ":" + std::to_string(line);
}

std::vector<const KeyLine *> KeyTable::with_name(std::string_view name) const {
    return lines_of(*this, by_name, base::lower_case(name));
}

std::vector<const KeyLine *> KeyTable::with_value(const std::string &value) const {
    return lines_of(*this, by_value, value);
}

std::string ipv4_value(const std::string &text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        return {};
    return {reinterpret_cast<const char *>(&address), sizeof address};
}

// One or two digits for each of six bytes, colons between them; a dash or anything behind is not read.
std::string ethernet_value(const std::string &text) {
    std::string value;
    for (std::size_t at = 0;;) {
        std::size_t end = at;
        while (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end])) != 0)
            ++end;
        if (end == at || end - at > 2)
            return {};
        value += static_cast<char>(std::stoi(text.substr(at, end - at), nullptr, 16));
        if (end == text.size())
            return value.size() == 6 ? value : "";
        if (text[end] != ':')
            return {};
        at = end + 1;
    }
}

std::uint32_t ipv4_number(const std::string &value) {
    std::uint32_t number = 0;
    for (const char byte : value)
        number = number << 8 | static_cast<unsigned char>(byte);
    return number;
}

std::string ipv4_text(std::uint32_t address) {
    char text[INET_ADDRSTRLEN] = "";
    const in_addr number{htonl(address)};
    inet_ntop(AF_INET, &number, text, sizeof text);
    return text;
}

KeyTable parse_hosts(TableText file) {
    return parse_keys(std::move(file), [](const std::string &text) {
        in6_addr six{};
        if (inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &six) == 1)
            return std::string(reinterpret_cast<const char *>(&six), sizeof six);
        return ipv4_value(text);
    });
}

KeyTable parse_ethers(TableText file) {
    return parse_keys(std::move(file), ethernet_value);
}

const BootItem *BootLine::item(std::string_view key) const {
    const auto found =
        std::find_if(items.begin(), items.end(), [&](const BootItem &item) { return item.key == key; });
    return found == items.end() ? nullptr : &*found;
}

std::string BootTable::place(std::size_t line) const {
    return file.path + ":" + std::to_string(line);
}

BootTable parse_bootparams(TableText file) {
    BootTable table;
    table.file = std::move(file);
    const std::string_view text = table.file.text;
    BootparamsReader reader(text);
    std::size_t counted = 0, number = 1;
    for (BootparamsEntry entry; reader.next(entry);) {
        number += static_cast<std::size_t>(std::count(text.begin() + static_cast<std::ptrdiff_t>(counted),
                                                      text.begin() + static_cast<std::ptrdiff_t>(entry.begin),
                                                      '\n'));
        counted = entry.begin;
        BootLine line{number, std::string(entry.name()), {}};
        if (line.name.starts_with('+') || line.name.starts_with('-'))
            continue;
        for (const std::string_view word : base::words_of(entry.items()))
            line.items.push_back(parse_item(word));
        table.by_name[base::lower_case(line.name)].push_back(table.lines.size());
        table.lines.push_back(std::move(line));
    }
    return table;
}

std::vector<SwitchLine> parse_switch(std::string_view text) {
    std::vector<SwitchLine> lines;
    std::size_t number = 0;
    base::for_each_line(text, [&](std::string_view line) {
        ++number;
        line = line.substr(0, line.find('#'));
        const std::size_t colon = line.find(':');
        if (colon == line.npos)
            return;
        SwitchLine parsed{number, base::lower_case(base::trimmed(line.substr(0, colon))), {}, {}};
        for (std::string_view rest = base::trimmed(line.substr(colon + 1)); !rest.empty();
             rest = base::trimmed(rest)) {
            if (rest.front() == '[') {
                const std::size_t end = std::min(rest.find(']'), rest.size() - 1) + 1;
                if (!parsed.actions.empty())
                    parsed.actions.back() = rest.substr(0, end);
                rest.remove_prefix(end);
                continue;
            }
            const std::string_view word = base::first_word(rest).substr(0, rest.find('['));
            parsed.sources.emplace_back(word);
            parsed.actions.emplace_back();
            rest.remove_prefix(word.size());
        }
        lines.push_back(std::move(parsed));
    });
    return lines;
}

} // namespace hostadm::server
