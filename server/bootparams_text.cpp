// SPDX-License-Identifier: MIT
#include "server/bootparams_text.hpp"

#include <algorithm>
#include <new>

#include "base/bootparams.hpp"
#include "base/owners.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/failure.hpp"

namespace hostadm::server {

namespace {

std::size_t comment_start(std::string_view line) {
    for (std::size_t mark = line.find('#'); mark != line.npos; mark = line.find('#', mark + 1))
        if (mark == 0 || base::is_blank(line[mark - 1]))
            return mark;
    return line.npos;
}

// A line taken apart.
struct Line {
    explicit Line(std::string_view line) {
        for (const char end : {'\n', '\r'})
            if (line.ends_with(end))
                line.remove_suffix(1);
        const std::size_t comment = comment_start(line);
        content = base::trimmed_end(line.substr(0, comment));
        continued = comment == line.npos && line.ends_with('\\');
    }

    std::string_view content; // without comment, line break and the blanks before them
    bool continued;           // on the next line
};

} // namespace

std::string_view BootparamsEntry::name() const {
    return base::first_word(base::trimmed(text));
}

std::string_view BootparamsEntry::items() const {
    return base::trimmed(base::trimmed(text).substr(name().size()));
}

bool is_continued(std::string_view line) {
    return Line(line).continued;
}

bool BootparamsReader::next(BootparamsEntry &entry) {
    do {
        if (at_ == file_.size())
            return false;
        read(entry);
    } while (base::trimmed(entry.text).empty());
    return true;
}

std::string_view BootparamsReader::line() const {
    return file_.substr(at_, std::min(file_.find('\n', at_), file_.size() - 1) + 1 - at_);
}

void BootparamsReader::read(BootparamsEntry &entry) {
    entry.begin = at_;
    entry.text.clear();
    for (bool continued = true; continued;) {
        const std::string_view whole = line();
        auto [content, goes_on] = Line(whole);
        entry.tail = whole.substr(content.size());
        if (goes_on)
            content = base::trimmed_end(content.substr(0, content.size() - 1));
        if (entry.text.empty())
            entry.text = content;
        else
            entry.text.append(" ").append(base::trimmed(content));
        at_ += whole.size();
        continued = goes_on && at_ < file_.size();
    }
    entry.end = at_;
}

void for_each_client(std::string_view file,
                     const std::function<void(std::string_view name, std::string_view items)> &use) {
    BootparamsReader reader(file);
    for (BootparamsEntry entry; reader.next(entry);)
        if (const std::string_view name = entry.name(); name.front() != '+' && name.front() != '-')
            use(name, entry.items());
}

namespace {

bool find_entry(std::string_view file, const std::string &client, BootparamsEntry &entry) {
    BootparamsReader reader(file);
    while (reader.next(entry)) {
        if (entry.name() != client)
            continue;
        if (entry.text.find('\0') != entry.text.npos)
            fail(Code::table, base::tr("the entry of {1} holds a NUL; correct it by hand", client));
        return true;
    }
    return false;
}

// ---- one entry ----

// The library edits the first text "KEY="; given the entry from a word on that begins so, it cannot meet
// another key that ends alike ("size" in "swapsize").
std::string edited(const std::string &text, const std::string &key, const char *server, const char *path) {
    const base::Allocated<char> result(edit_bootparams_entry(text.c_str(), key.c_str(), server, path));
    if (result == nullptr)
        throw std::bad_alloc();
    return result.get();
}

std::size_t find_item(const std::string &text, const std::string &key) {
    const std::string start = key + "=";
    for (std::size_t found = text.find(start); found != text.npos; found = text.find(start, found + 1))
        if (found > 0 && base::is_blank(text[found - 1]))
            return found;
    return text.npos;
}

std::string with_item(const std::string &text, const BootparamsItem &item) {
    const std::size_t found = find_item(text, item.key);
    const std::string rest = found == text.npos ? "" : text.substr(found);
    const std::string start =
        found == text.npos ? std::string(base::trimmed_end(text)) : text.substr(0, found);
    return start + edited(rest, item.key, item.server.c_str(), item.path.c_str());
}

std::string without_items(std::string text, const std::string &key) {
    for (std::size_t found; (found = find_item(text, key)) != text.npos;)
        text = base::trimmed_end(text.substr(0, found) + edited(text.substr(found), key, nullptr, nullptr));
    return text;
}

// Puts the changed text of an entry into the file, unless it says what it said before.
bool replace_entry(std::string &file, const BootparamsEntry &entry, const std::string &text) {
    const auto words = base::words_of(text);
    if (words == base::words_of(entry.text))
        return false;
    file.replace(entry.begin, entry.end - entry.begin, words.size() > 1 ? text + entry.tail : "");
    return true;
}

// A line added behind an open last line, or behind a backslash, would become part of it.
void close_last_line(std::string &file) {
    if (file.empty())
        return;
    if (file.back() != '\n')
        file += '\n';
    const std::size_t before = file.size() < 2 ? file.npos : file.rfind('\n', file.size() - 2);
    if (is_continued(std::string_view(file).substr(before == file.npos ? 0 : before + 1)))
        file += '\n';
}

bool is_name(std::string_view text) {
    return !text.empty() &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.") ==
               text.npos;
}

// Paths of entries end up in commands. Brackets are left to plain values, such as
// ns=server:nis(255.255.255.0).
bool is_shells(char c, std::string_view value) {
    return std::string_view("\"'`$\\|&;<>*?[]{}!#~^").find(c) != std::string_view::npos ||
           (value.front() == '/' && (c == '(' || c == ')'));
}

} // namespace

std::string defect_of(const BootparamsItem &item) {
    if (!is_name(item.key))
        return base::tr("the key \"{1}\" must be made of letters, digits, \"_\", \"-\" and \".\"", item.key);
    if (!item.server.empty() && !is_name(item.server))
        return base::tr("the server of {1} must be a host name, not \"{2}\"", item.key, item.server);
    if (item.server.empty() && item.path.empty())
        return base::tr("{1} needs a path or a value; database/remove_bootparams removes it", item.key);
    for (const char c : item.path)
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f || c == ':' || is_shells(c, item.path))
            return base::tr("the path of {1} must not hold blanks, colons, backslashes or other characters "
                            "that the shell takes apart",
                            item.key);
    if ((item.path + "/").find("/../") != std::string::npos)
        return base::tr("the path of {1} must not hold \"..\"", item.key);
    return "";
}

std::variant<std::vector<BootparamsItem>, std::string> parse_items(std::string_view text) {
    std::vector<BootparamsItem> items;
    for (const std::string_view word : base::words_of(text)) {
        const auto parts = base::split_item(word);
        if (!parts)
            return base::tr("{1} is no item; items are given as KEY=SERVER:PATH or KEY=VALUE", word);
        BootparamsItem item{std::string(parts->key), std::string(parts->server), std::string(parts->path)};
        if (std::string defect = defect_of(item); !defect.empty())
            return defect;
        if (std::any_of(items.begin(), items.end(), [&](const auto &other) { return other.key == item.key; }))
            return base::tr("the key {1} is given twice", item.key);
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<BootparamsClient> clients_in(std::string_view file) {
    std::vector<BootparamsClient> clients;
    for_each_client(file, [&](std::string_view name, std::string_view items) {
        clients.push_back({std::string(name), std::string(items)});
    });
    return clients;
}

bool set_items(std::string &file, const std::string &client, const std::vector<BootparamsItem> &items) {
    BootparamsEntry entry;
    const bool exists = find_entry(file, client, entry);
    std::string text = exists ? entry.text : client;
    for (const BootparamsItem &item : items)
        text = with_item(text, item);
    if (exists)
        return replace_entry(file, entry, text);
    close_last_line(file);
    file += text + "\n";
    return true;
}

bool remove_items(std::string &file, const std::string &client, const std::vector<std::string> &keys) {
    BootparamsEntry entry;
    if (!find_entry(file, client, entry))
        return false;
    std::string text = entry.text;
    for (const std::string &key : keys)
        text = without_items(std::move(text), key);
    return replace_entry(file, entry, text);
}

bool remove_client(std::string &file, const std::string &client) {
    std::string kept;
    std::size_t copied = 0;
    BootparamsReader reader(file);
    for (BootparamsEntry entry; reader.next(entry);) {
        if (entry.name() == client) {
            kept.append(file, copied, entry.begin - copied);
            copied = entry.end;
        }
    }
    if (copied == 0)
        return false;
    kept.append(file, copied);
    file = std::move(kept);
    return true;
}

} // namespace hostadm::server
