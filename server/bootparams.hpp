// SPDX-License-Identifier: MIT
// /etc/bootparams: the entries of this server's clients, and their items root, swap and dump.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "server/bootparams_text.hpp"
#include "server/journal.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

inline constexpr const char *bootparams_path = "/etc/bootparams";

// The whole file; empty when there is none. Throws Failure when it cannot be read.
std::string read_bootparams_file();

// All entries, in their order; none when there is no file. Throws Failure when it cannot be read.
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
// Throw Failure when the file cannot be edited.
bool set_client_items(const std::string &client, const std::vector<BootparamsItem> &items);
bool remove_client_items(const std::string &client, const std::vector<std::string> &keys);
bool remove_client_entry(const std::string &client);

// Sets one item of an entry that is there, as a step of a run. False: it was so already.
bool change_item(const std::string &client, const BootparamsItem &item, Journal &journal);

struct AddedItem {
    static constexpr std::string_view kind = "added boot parameter";
    std::string client, key, value; // SERVER:PATH
    static auto fields(auto &self) { return std::tie(self.client, self.key, self.value); }
};
// It stays when it has another value by now.
std::string take_back(const AddedItem &added, const UndoContext &context);

// Sets those items that the client's entry lacks. False: it has them all.
bool add_missing_items(const std::string &client, const std::vector<BootparamsItem> &items, Journal &journal);

} // namespace hostadm::server
