// SPDX-License-Identifier: MIT
// Any text as a bootparams entry, edited. The input is lines: key, server, path, and the rest is the entry.
//
// What must hold: a value that was set is read back; no item but the edited one changes; removing takes the
// item away; and the same value again changes nothing but blanks.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "hostadm.h"

namespace {

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

std::string edited(const std::string &entry, const std::string &key, const char *server, const char *path) {
    char *result = edit_bootparams_entry(entry.c_str(), key.c_str(), server, path);
    require(result != nullptr, "there is a result");
    const std::string text = result;
    std::free(result);
    return text;
}

std::string take_line(std::string_view &input) {
    const std::size_t end = std::min(input.find('\n'), input.size());
    std::string line(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
    return line.c_str(); // up to a NUL
}

std::vector<std::string> words_of(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    for (const char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0) {
            word += c;
        } else if (!word.empty()) {
            words.push_back(word);
            word.clear();
        }
    }
    if (!word.empty())
        words.push_back(word);
    return words;
}

bool is_plain(const std::string &text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        return std::isspace(static_cast<unsigned char>(c)) != 0 || c == ':' || c == '=';
    });
}

// The words around the first item of the key, each of which must stay.
struct Around {
    std::string before, after; // the text in front of the item and behind the character that ends it
    bool found = false;
};
Around around(const std::string &entry, const std::string &key) {
    const std::size_t item = entry.find(key + "=");
    if (item == entry.npos)
        return {entry, "", false};
    const std::size_t end = entry.find_first_of(" \t\n", item);
    return {entry.substr(0, item), end == entry.npos ? "" : entry.substr(end + 1), true};
}

std::vector<std::string> joined(std::vector<std::string> one, const std::vector<std::string> &other) {
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::string key = take_line(input);
    const std::string server = take_line(input);
    const std::string path = take_line(input);
    const std::string entry = std::string(input).c_str();
    const Around old = around(entry, key);

    // Nothing in particular is asked of an odd key or value but to come out in its place.
    const std::string set = edited(entry, key, server.c_str(), path.c_str());
    const std::string removed = edited(entry, key, nullptr, "");
    if (server.empty() && path.empty())
        require(set == removed, "no value removes");
    if (!old.found)
        require(removed == entry, "without the item there is nothing to remove");

    if (!is_plain(key) || key.empty() || !is_plain(server) || !is_plain(path) ||
        (server.empty() && path.empty()))
        return 0;
    const std::string item = key + "=" + server + ":" + path;
    const std::size_t found = set.find(key + "=");
    require(found != set.npos && set.compare(found, item.size(), item) == 0, "the set value is read back");
    require(found + item.size() == set.size() || set[found + item.size()] == ' ',
            "the item ends behind its value");
    if (old.found)
        require(set.substr(0, found) == old.before, "the text in front of the item stays");
    else
        require(set.substr(0, found) == entry + " ", "a new item stands at the end");
    require(words_of(set.substr(found + item.size())) == words_of(old.after), "the items behind it stay");
    require(words_of(edited(set, key, server.c_str(), path.c_str())) == words_of(set),
            "the same again changes nothing");
    if (old.found)
        require(words_of(removed) == joined(words_of(old.before), words_of(old.after)),
                "only the item is removed");
    return 0;
}
