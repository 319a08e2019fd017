// SPDX-License-Identifier: MIT
#include "server/host_tables.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <netinet/ether.h>
#include <utility>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/line_edits.hpp"
#include "server/named_table.hpp"

namespace hostadm::server {

namespace {

// A line without its comment, taken apart.
struct Line {
    std::string_view key;
    std::vector<std::string_view> names;
};

Line parse(std::string_view line) {
    std::vector<std::string_view> words = base::words_of(line.substr(0, line.find('#')));
    if (words.empty())
        return {};
    return {words.front(), {words.begin() + 1, words.end()}};
}

bool same_name(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

bool has_name(const Line &line, std::string_view name) {
    return std::any_of(line.names.begin(), line.names.end(),
                       [&](std::string_view other) { return same_name(other, name); });
}

std::string line_of(const std::string &key, const std::string &name) {
    return key + "\t" + name + "\n";
}

// The last line that is exactly this one.
std::size_t find_line(const std::string &text, const std::string &line) {
    for (std::size_t at = text.rfind(line); at != text.npos;
         at = at == 0 ? text.npos : text.rfind(line, at - 1))
        if (at == 0 || text[at - 1] == '\n')
            return at;
    return text.npos;
}

} // namespace

std::optional<std::string> HostTable::same_spelling(std::string_view key) const {
    const std::string text(key);
    if (kind_ == Kind::addresses) {
        in_addr address{};
        if (inet_pton(AF_INET, text.c_str(), &address) != 1)
            return std::nullopt;
        return std::string(reinterpret_cast<const char *>(&address), sizeof address);
    }
    ether_addr address{};
    if (ether_aton_r(text.c_str(), &address) == nullptr)
        return std::nullopt;
    return std::string(reinterpret_cast<const char *>(&address), sizeof address);
}

bool HostTable::is_same_key(std::string_view one, std::string_view other) const {
    const std::optional<std::string> first = same_spelling(one);
    return first && first == same_spelling(other);
}

HostTable::Added HostTable::examine_text(std::string_view text, const std::string &key,
                                         const std::string &name) const {
    const std::optional<std::string> wanted = same_spelling(key);
    Added found{Outcome::added};
    base::for_each_line(text, [&](std::string_view whole) {
        const Line line = parse(whole);
        const std::optional<std::string> other = same_spelling(line.key);
        if (found.outcome == Outcome::present || !other || line.names.empty())
            return;
        const bool named = has_name(line, name);
        if (named && other == wanted)
            found = {Outcome::present};
        else if (named)
            found = {Outcome::conflict, base::tr("{1} has {2} in {3}, not {4}", name, line.key, path_, key)};
        else if (other == wanted)
            found = {Outcome::conflict,
                     base::tr("{1} belongs to {2} in {3}", key, line.names.front(), path_)};
    });
    return found;
}

HostTable::Added HostTable::examine(const std::string &key, const std::string &name) const {
    return examine_text(read(), key, name);
}

HostTable::Added HostTable::add(const std::string &key, const std::string &name) const {
    Added found{Outcome::added};
    const int status = tables::edit_file(path_,
                                         [&](std::string &text) {
                                             found = examine_text(text, key, name);
                                             if (found.outcome == Outcome::added) {
                                                 if (!text.empty() && text.back() != '\n')
                                                     text += '\n';
                                                 text += line_of(key, name);
                                             }
                                             return 0;
                                         },
                                         {.create = true});
    if (status != 0)
        fail_edit(path_, status);
    return found;
}

bool HostTable::is_meant(std::string_view whole, const std::string &key, const std::string &name) const {
    const Line line = parse(whole);
    const std::optional<std::string> other = same_spelling(line.key);
    return other && !line.names.empty() && (key.empty() || other == same_spelling(key)) &&
           (name.empty() || same_name(line.names.front(), name));
}

std::vector<HostTable::Entry> HostTable::entries_in(std::string_view text) const {
    std::vector<Entry> entries;
    base::for_each_line(text, [&](std::string_view whole) {
        const Line line = parse(whole);
        if (!line.names.empty())
            entries.push_back({std::string(line.key), {line.names.begin(), line.names.end()}});
    });
    return entries;
}

std::vector<HostTable::Entry> HostTable::entries_of(std::string_view text, const std::string &key,
                                                    const std::string &name) const {
    std::vector<Entry> entries;
    base::for_each_line(text, [&](std::string_view whole) {
        if (!is_meant(whole, key, name))
            return;
        const Line line = parse(whole);
        entries.push_back({std::string(line.key), {line.names.begin(), line.names.end()}});
    });
    return entries;
}

std::string HostTable::without_entries(std::string_view text, const std::string &key,
                                       const std::string &name) const {
    return without_lines(text, [&](std::string_view line) { return is_meant(line, key, name); });
}

namespace {

bool is_localhost(const std::string &name) {
    return same_name(name, "localhost");
}

void check_removal(const HostTable &table, const std::vector<HostTable::Entry> &entries) {
    for (const auto &[key, names] : entries)
        if (std::any_of(names.begin(), names.end(), is_localhost))
            fail(Code::table, base::tr("the line of {1} in {2} holds the name localhost, without which this "
                                       "system does not work; edit it by hand",
                                       key, table.path()));
}

// A name that stands in no line's first place is no reason to remove the line of another host.
void check_is_no_alias(const HostTable &table, const std::string &text, const std::string &name) {
    for (const auto &[key, names] : table.entries_in(text))
        if (std::any_of(names.begin() + 1, names.end(),
                        [&](const auto &other) { return same_name(other, name); }))
            fail(Code::unusable, base::tr("{1} is a further name of {2} ({3}) in {4}; set that line with the "
                                          "names that are to stay (database/set_host)",
                                          name, names.front(), key, table.path()));
}

} // namespace

RemovedEntries remove_entries(const HostTable &table, const std::string &key, const std::string &name) {
    const std::string text = read_named_table(table.path());
    const auto entries = table.entries_of(text, key, name);
    if (entries.empty() && !name.empty())
        check_is_no_alias(table, text, name);
    check_removal(table, entries);
    RemovedEntries removed;
    for (const auto &[other, names] : entries)
        for (const std::string &one : names)
            removed.names += (removed.names.empty() ? "" : " ") + one;
    removed.changed = !entries.empty() && change_named_table(table.path(), [&](std::string &whole) {
        whole = table.without_entries(whole, key, name);
    });
    if (!table.entries_of(read_named_table(table.path()), key, name).empty())
        fail(Code::no_effect,
             base::tr("{1} has the line again; somebody else may be changing it", table.path()));
    return removed;
}

bool HostTable::remove(const std::string &name, const std::string &key) const {
    bool removed = false;
    const int status = tables::edit_file(path_, [&](std::string &text) {
        std::string rest = without_entries(text, key, name);
        removed = rest != text;
        text = std::move(rest);
        return 0;
    });
    if (status != 0 && status != tables::no_such_line)
        fail_edit(path_, status);
    return removed;
}

std::string HostTable::key_of(std::string_view name, bool first_only) const {
    std::string key;
    base::for_each_line(read(), [&](std::string_view whole) {
        const Line line = parse(whole);
        if (key.empty() && same_spelling(line.key) && !line.names.empty() &&
            (first_only ? same_name(line.names.front(), name) : has_name(line, name)))
            key = line.key;
    });
    return key;
}

std::string HostTable::name_of(std::string_view key) const {
    const std::optional<std::string> wanted = same_spelling(key);
    std::string name;
    base::for_each_line(read(), [&](std::string_view whole) {
        const Line line = parse(whole);
        if (name.empty() && wanted && !line.names.empty() && same_spelling(line.key) == wanted)
            name = line.names.front();
    });
    return name;
}

std::unordered_map<std::string, std::string> HostTable::keys_by_name() const {
    std::unordered_map<std::string, std::string> keys;
    base::for_each_line(read(), [&](std::string_view whole) {
        const Line line = parse(whole);
        if (same_spelling(line.key))
            for (const std::string_view name : line.names)
                keys.try_emplace(base::lower_case(name), line.key);
    });
    return keys;
}

std::string HostTable::read() const {
    std::string text;
    const int status = tables::read_file(path_, text);
    if (status != 0 && status != tables::no_such_line)
        fail_reading(path_, status);
    return text;
}

bool HostTable::ensure(const std::string &key, const std::string &name, Journal &journal) const {
    note_new_table(path_, journal);
    if (examine(key, name).outcome == Outcome::added)
        journal.note(AddedLine{path_, line_of(key, name)});
    const Added found = add(key, name);
    if (found.outcome == Outcome::conflict)
        fail(Code::taken, found.conflict);
    return found.outcome == Outcome::added;
}

std::string take_back(const AddedLine &added, const UndoContext &) {
    const int status = tables::edit_file(added.table, [&](std::string &text) {
        if (const std::size_t at = find_line(text, added.line); at != text.npos)
            text.erase(at, added.line.size());
        return 0;
    });
    return status == 0 || status == tables::no_such_line ? "" : edit_failure(added.table, status);
}

HostTable hosts_table() {
    return {HostTable::Kind::addresses, "/etc/hosts"};
}

HostTable ethers_table() {
    return {HostTable::Kind::ethernets, "/etc/ethers"};
}

} // namespace hostadm::server
