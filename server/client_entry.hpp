// SPDX-License-Identifier: MIT
// A client's entry in /etc/bootparams, and its items root, swap and dump.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "server/bootparams_file.hpp"

namespace hostadm::server {

// All entries, in their order; none when there is no file. Throws std::runtime_error when it cannot be read.
std::vector<BootparamsClient> client_entries();
// How bootparams writes the name of a client, since the case of a host name does not count; as it is given
// when bootparams does not have it.
std::string client_name_as_written(const std::string &client);
// The items of one client, or the empty string.
std::string client_items(std::string_view client);

// SERVER:PATH of a key among items, or the empty string; and its path.
std::string item_of(std::string_view items, std::string_view key);
std::string path_of_item(std::string_view items, std::string_view key);

// Changes of one client's entry, each under the lock of the file. True when there was anything to change.
// Throw std::runtime_error when the file cannot be edited.
bool set_client_items(const std::string &client, const std::vector<BootparamsItem> &items);
bool remove_client_items(const std::string &client, const std::vector<std::string> &keys);
bool remove_client_entry(const std::string &client);

} // namespace hostadm::server
