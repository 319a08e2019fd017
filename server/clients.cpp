// SPDX-License-Identifier: MIT
#include "server/clients.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

#include "base/text.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "hostadm/table_edit.hpp"
#include "server/client_entry.hpp"
#include "server/host_tables.hpp"

namespace hostadm::server {

namespace {

// The library ends the process at a source that it does not know, and finds no client in one that it cannot
// read. Here it is said which that is.
void check_sources() {
    const sysv_nsw_config *config = sysv_nsw_getconfig("bootparams");
    if (config == nullptr)
        throw std::runtime_error(
            std::string("/etc/nsswitch.conf cannot be read: ") + std::strerror(errno) +
            "; it names the sources of bootparams, and a line \"bootparams: files\" will do");
    for (const sysv_nsw_lookup *lookup = config->lookups; lookup != nullptr; lookup = lookup->next) {
        const std::string source = lookup->service;
        if (source != "files" && source != "nis" && source != "nisplus")
            throw std::runtime_error("/etc/nsswitch.conf names the source \"" + source +
                                     "\" for bootparams; only files, nis and nisplus can be listed");
        if (source == "files" && access(bootparams_path, R_OK) != 0 && errno != ENOENT)
            throw std::runtime_error(std::string(bootparams_path) +
                                     " cannot be read: " + std::strerror(errno));
        if (std::error_code error; source == "files" && std::filesystem::is_directory(bootparams_path, error))
            throw std::runtime_error(std::string(bootparams_path) +
                                     " cannot be read: " + std::strerror(EISDIR));
    }
}

} // namespace

std::unordered_map<std::string, std::string> current_shares() {
    std::unordered_map<std::string, std::string> shares;
    if (access("/usr/sbin/share", X_OK) != 0)
        return shares;
    free_sharefs_ents();
    get_sharefs_ents();
    for (const sharefs_entry *entry = sfs_top; entry != nullptr; entry = entry->next)
        shares.try_emplace(entry->path, entry->options);
    free_sharefs_ents();
    return shares;
}

std::vector<TableShare> table_shares(const std::string &table) {
    std::vector<TableShare> shares;
    std::string text;
    tables::read_file(table, text);
    base::for_each_line(text, [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() < 2 || (words.front() != "share" && words.front() != "#share"))
            return;
        TableShare share{std::string(words.back()), "", words.front() == "#share"};
        for (std::size_t i = 1; i + 2 < words.size(); ++i)
            if (words[i] == "-o")
                share.options = words[i + 1];
        shares.push_back(share);
    });
    return shares;
}

std::vector<ClientSummary> all_clients() {
    const auto addresses = hosts_table().keys_by_name();
    const auto ethernets = ethers_table().keys_by_name();
    const auto links = all_boot_links();
    const auto shares = current_shares();
    const auto value = [](const auto &table, const std::string &key) {
        const auto found = table.find(key);
        return found == table.end() ? std::string() : found->second;
    };

    check_sources();
    std::vector<ClientSummary> clients;
    for (const client_node *node = do_bootparams(); node != nullptr; node = node->next) {
        ClientSummary client;
        client.name = node->name;
        client.root = node->root_path;
        client.address = value(addresses, base::lower_case(client.name));
        client.ethernet = value(ethernets, base::lower_case(client.name));
        client.shared = shares.count(client.root) != 0;

        const std::string digits = address_digits(client.address);
        const auto found = links.find(digits);
        const BootLinks &own = found == links.end() ? BootLinks() : found->second;
        client.boot_links = digits.empty() ? "no address" : boot_links_state(digits, own);
        if (!own.empty()) {
            client.boot_program = own.front().target;
            client.architecture = architecture_of(client.boot_program);
        }
        clients.push_back(std::move(client));
    }
    return clients;
}

} // namespace hostadm::server
