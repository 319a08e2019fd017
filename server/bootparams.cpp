// SPDX-License-Identifier: MIT
#include "server/bootparams.hpp"

#include <functional>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/line_edits.hpp"

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
        fail_edit(bootparams_path, status);
    return changed;
}

} // namespace

std::string read_bootparams_file() {
    std::string file;
    const int status = tables::read_file(bootparams_path, file);
    if (status != 0 && status != tables::no_such_line)
        fail_reading(bootparams_path, status);
    return file;
}

std::vector<BootparamsClient> client_entries() {
    return clients_in(read_bootparams_file());
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
    return edit([&](std::string &file) { return set_items(file, client, items); }, {.create = true});
}

bool remove_client_items(const std::string &client, const std::vector<std::string> &keys) {
    return edit([&](std::string &file) { return remove_items(file, client, keys); }, {});
}

bool remove_client_entry(const std::string &client) {
    return edit([&](std::string &file) { return remove_client(file, client); }, {});
}

bool add_missing_items(const std::string &client, const std::vector<BootparamsItem> &items,
                       Journal &journal) {
    const std::string before = client_items(client);
    std::vector<BootparamsItem> missing;
    for (const BootparamsItem &item : items)
        if (item_of(before, item.key).empty())
            missing.push_back(item);
    if (missing.empty())
        return false;
    note_new_table(bootparams_path, journal);
    for (const BootparamsItem &item : missing)
        journal.note(AddedItem{client, item.key, item.server + ":" + item.path});
    return set_client_items(client, missing);
}

bool change_item(const std::string &client, const BootparamsItem &item, Journal &journal) {
    const std::string file = read_bootparams_file();
    BootparamsReader reader(file);
    for (BootparamsEntry entry; reader.next(entry);) {
        if (entry.name() != client)
            continue;
        const std::string before = file.substr(entry.begin, entry.end - entry.begin);
        std::string after = before;
        if (!set_items(after, client, {item}))
            return false;
        replace_lines(bootparams_path, before, after, journal);
        return true;
    }
    fail(Code::not_found, base::tr("there is no client {1} in {2} any more", client, bootparams_path));
}

std::string take_back(const AddedItem &added, const UndoContext &) {
    edit(
        [&](std::string &file) {
            for (const BootparamsClient &entry : clients_in(file))
                if (entry.name == added.client)
                    return item_of(entry.items, added.key) == added.value &&
                           remove_items(file, added.client, {added.key});
            return false;
        },
        {});
    return "";
}

} // namespace hostadm::server
