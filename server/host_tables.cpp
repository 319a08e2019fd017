// SPDX-License-Identifier: MIT
#include "server/host_tables.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <netinet/ether.h>

#include "base/text.hpp"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"

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
            found = {Outcome::conflict,
                     name + " has " + std::string(line.key) + " in " + path_ + ", not " + key};
        else if (other == wanted)
            found = {Outcome::conflict,
                     key + " belongs to " + std::string(line.names.front()) + " in " + path_};
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

bool HostTable::remove(const std::string &name, const std::string &key) const {
    const std::optional<std::string> wanted = key.empty() ? std::nullopt : same_spelling(key);
    bool removed = false;
    const int status = tables::edit_file(path_, [&](std::string &text) {
        std::string rest;
        removed = false;
        std::string_view whole = text;
        while (!whole.empty()) {
            const std::size_t end = std::min(whole.find('\n'), whole.size() - 1) + 1;
            const Line line = parse(whole.substr(0, end - (whole[end - 1] == '\n' ? 1 : 0)));
            const std::optional<std::string> other = same_spelling(line.key);
            const bool ours = other && (!wanted || other == wanted) && !line.names.empty() &&
                              same_name(line.names.front(), name);
            if (ours)
                removed = true;
            else
                rest += whole.substr(0, end);
            whole.remove_prefix(end);
        }
        if (removed)
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
