// SPDX-License-Identifier: MIT
// The text of /etc/bootparams: an entry for each client, "NAME KEY=SERVER:PATH ...". A backslash at the end of a
// line continues the entry on the next line. A "#" at the start of a line or behind a blank begins a comment,
// which ends with its line and is never continued. Of several entries of one name the first counts. Lines that
// begin with "+" or "-" belong to the name-service switch and are no clients.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace hostadm::server {

struct BootparamsEntry {
    std::size_t begin = 0, end = 0; // its lines in the file, the last line break included
    std::string text;               // name and items, lines joined
    std::string tail;               // what follows them on the last line: blanks, comment, line break

    std::string_view name() const;
    std::string_view items() const;
};

// Whether a line goes on in the next.
bool is_continued(std::string_view line);

// Walks over the entries; lines without one are passed over.
class BootparamsReader {
public:
    explicit BootparamsReader(std::string_view file) : file_(file) {}
    bool next(BootparamsEntry &entry);

private:
    std::string_view line() const;
    void read(BootparamsEntry &entry);

    std::string_view file_;
    std::size_t at_ = 0;
};

// The clients, which are all entries but those that begin with "+" or "-": they belong to the name-service
// switch. The items are separated as in the file, continued lines joined with a blank.
void for_each_client(std::string_view file,
                     const std::function<void(std::string_view name, std::string_view items)> &use);

struct BootparamsItem {
    std::string key, server, path;
};

// Reads "KEY=SERVER:PATH KEY=VALUE ..."; or says what is wrong with it.
std::variant<std::vector<BootparamsItem>, std::string> parse_items(std::string_view text);
// What is wrong with an item; the empty string if nothing is.
std::string defect_of(const BootparamsItem &item);

struct BootparamsClient {
    std::string name, items;
};
std::vector<BootparamsClient> clients_in(std::string_view file);

// The changes below edit the file's text and say whether there was anything to change. Every other line keeps
// its bytes; an entry that is changed becomes one line and keeps the comment at its end.

// Sets items of a client, whose entry is added at the end if there is none. Throws Failure for an entry that
// holds a NUL.
bool set_items(std::string &file, const std::string &client, const std::vector<BootparamsItem> &items);
// Removes items of a client, and its entry with the last of them.
bool remove_items(std::string &file, const std::string &client, const std::vector<std::string> &keys);
// Removes every entry of a client.
bool remove_client(std::string &file, const std::string &client);

} // namespace hostadm::server
