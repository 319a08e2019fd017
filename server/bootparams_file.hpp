// SPDX-License-Identifier: MIT
// The file /etc/bootparams: an entry for each client, "NAME KEY=SERVER:PATH ...", laid out as
// bootparams_entries.hpp says. Of several entries of one name the first counts. Lines that begin with "+"
// or "-" belong to the name-service switch and are no clients.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "server/bootparams_entries.hpp"

namespace hostadm::server {

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

// Sets items of a client, whose entry is added at the end if there is none.
// Throws std::domain_error for an entry that holds a NUL.
bool set_items(std::string &file, const std::string &client, const std::vector<BootparamsItem> &items);
// Removes items of a client, and its entry with the last of them.
bool remove_items(std::string &file, const std::string &client, const std::vector<std::string> &keys);
// Removes every entry of a client.
bool remove_client(std::string &file, const std::string &client);

} // namespace hostadm::server
