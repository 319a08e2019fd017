// SPDX-License-Identifier: MIT
#include "server/client_entry.hpp"

#include <cstring>
#include <functional>
#include <stdexcept>

#include "base/text.hpp"
#include "hostadm/table_edit.hpp"
#include "server/edit_failure.hpp"
#include "server/host_tables.hpp"

namespace hostadm::server {

namespace {

bool edit(const std::function<bool(std::string &file)> &change, const tables::Options &options) {
    bool changed = false;
    const int status = tables::edit_file(
        bootparams_path,
        [&](std::string &file) {
            changed = change(file);
            return 0;
        },
        options);
    if (status == tables::no_such_line && !options.create)
        return false;
    if (status != 0)
        throw std::runtime_error(server::edit_failure(bootparams_path, status));
    return changed;
}

} // namespace

std::vector<BootparamsClient> client_entries() {
    std::string file;
    const int status = tables::read_file(bootparams_path, file);
    if (status != 0 && status != tables::no_such_line)
        throw std::runtime_error(std::string(bootparams_path) + " cannot be read: " + std::strerror(-status));
    return server::clients_in(file);
}

std::string client_name_as_written(const std::string &client) {
    std::string name = client;
    for (const BootparamsClient &entry : client_entries()) {
        if (entry.name == client)
            return client;
        if (name == client && base::lower_case(entry.name) == base::lower_case(client))
            name = entry.name;
    }
    return name;
}

std::string client_items(std::string_view client) {
    for (const BootparamsClient &entry : client_entries())
        if (entry.name == client)
            return entry.items;
    return {};
}

std::string item_of(std::string_view items, std::string_view key) {
    for (const std::string_view word : base::words_of(items))
        if (word.size() > key.size() && word.starts_with(key) && word[key.size()] == '=')
            return std::string(word.substr(key.size() + 1));
    return {};
}

std::string path_of_item(std::string_view items, std::string_view key) {
    const std::string item = item_of(items, key);
    const std::size_t colon = item.find(':');
    return colon == item.npos ? "" : item.substr(colon + 1);
}

bool set_client_items(const std::string &client, const std::vector<BootparamsItem> &items) {
    return edit([&](std::string &file) { return server::set_items(file, client, items); }, {.create = true});
}

bool remove_client_items(const std::string &client, const std::vector<std::string> &keys) {
    return edit([&](std::string &file) { return server::remove_items(file, client, keys); }, {});
}

bool remove_client_entry(const std::string &client) {
    return edit([&](std::string &file) { return server::remove_client(file, client); }, {});
}

} // namespace hostadm::server
