// SPDX-License-Identifier: MIT
#include "server/clients.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <unordered_map>

#include "base/text.hpp"
#include "base/this_host.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "server/bootparams.hpp"
#include "server/client_root.hpp"
#include "server/disabling.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace {

// The library ends the process at a source that it does not know, and finds no client in one that it cannot
// read. Here it is said which that is.
void check_sources() {
    const sysv_nsw_config *config = sysv_nsw_getconfig("bootparams");
    if (config == nullptr)
        fail(Code::table,
             std::string("/etc/nsswitch.conf cannot be read: ") + std::strerror(errno) +
                 "; it names the sources of bootparams, and a line \"bootparams: files\" will do");
    for (const sysv_nsw_lookup *lookup = config->lookups; lookup != nullptr; lookup = lookup->next) {
        const std::string source = lookup->service;
        if (source != "files" && source != "nis" && source != "nisplus")
            fail(Code::table, "/etc/nsswitch.conf names the source \"" + source +
                                  "\" for bootparams; only files, nis and nisplus can be listed");
        if (source == "files" && access(bootparams_path, R_OK) != 0 && errno != ENOENT)
            fail_reading(bootparams_path, -errno);
        if (std::error_code error; source == "files" && std::filesystem::is_directory(bootparams_path, error))
            fail_reading(bootparams_path, -EISDIR);
    }
}

std::string value_of(const std::unordered_map<std::string, std::string> &table, const std::string &key) {
    const auto found = table.find(key);
    return found == table.end() ? "" : found->second;
}

// The items of a client that the library found: in the file, or of a map, which tells it no more.
std::string items_of(const client_node &node,
                     const std::unordered_multimap<std::string, std::string> &entries) {
    const auto [first, last] = entries.equal_range(node.name);
    for (auto entry = first; entry != last; ++entry)
        if (path_of_item(entry->second, "root") == node.root_path)
            return entry->second;
    return "root=" + base::own_host_name() + ":" + node.root_path;
}

} // namespace

std::string Client::item(std::string_view key) const {
    return item_of(items, key);
}

std::string Client::path(std::string_view key) const {
    return path_of_item(items, key);
}

std::string Client::own_path(std::string_view key) const {
    const std::string whole = item(key), place = path(key);
    const bool own = !place.empty() && place.front() == '/' &&
                     base::is_this_host(whole.substr(0, whole.find(':')), base::Lookup::name_services);
    return own ? path_on_server(place) : "";
}

std::string Client::boot_links() const {
    const std::string digits = address_digits(address);
    return digits.empty() ? "no address" : boot_links_state(digits, links);
}

std::string Client::architecture() const {
    const std::string named = architecture_of(boot_program());
    if (!named.empty() || links.size() < 2)
        return named;
    const std::string &link = links.back().name;
    return base::lower_case(link.substr(std::min(link.find('.'), link.size() - 1) + 1));
}

std::string share_options_of(const std::string &client) {
    return "rw=" + client + ",root=" + client;
}

Client find_client(const std::string &name) {
    Client client;
    client.name = client_name_as_written(name);
    client.items = client_items(client.name);
    client.address = hosts_table().key_of(name);
    client.ethernet = ethers_table().key_of(name);
    if (const std::string kept = disabled_ethernet_of(client.name);
        client.ethernet.empty() && !kept.empty()) {
        client.ethernet = kept;
        client.disabled = true;
    }
    if (!client.address.empty())
        client.links = boot_links_of(client.address);
    return client;
}

Client known_client(const std::string &name) {
    Client client = find_client(name);
    if (client.items.empty())
        fail(Code::not_found, "there is no client " + client.name + " in " + bootparams_path +
                                  "; hostadm run client/list tells which there are");
    return client;
}

std::vector<Client> all_clients() {
    const auto addresses = hosts_table().keys_by_name();
    const auto ethernets = ethers_table().keys_by_name();
    auto links = all_boot_links();
    std::unordered_multimap<std::string, std::string> entries;
    for (BootparamsClient &entry : client_entries())
        entries.emplace(std::move(entry.name), std::move(entry.items));

    const auto disabled = disabled_ethernets();

    check_sources();
    std::vector<Client> clients;
    for (const client_node *node = do_bootparams(); node != nullptr; node = node->next) {
        const std::string name = base::lower_case(node->name);
        Client client{node->name, value_of(addresses, name), value_of(ethernets, name),
                      items_of(*node, entries)};
        if (const auto own = links.find(address_digits(client.address)); own != links.end())
            client.links = own->second;
        if (const std::string kept = value_of(disabled, name); client.ethernet.empty() && !kept.empty()) {
            client.ethernet = kept;
            client.disabled = true;
        }
        clients.push_back(std::move(client));
    }
    return clients;
}

bool is_server_itself(const std::string &name) {
    return base::lower_case(name) == base::lower_case(base::own_host_name()) ||
           base::lower_case(name) == "localhost";
}

void check_root_is_its_own(const Client &client, const std::string &root) {
    RealPaths real_paths;
    for (const BootparamsClient &other : client_entries()) {
        const std::string theirs = real_paths.of(path_of_item(other.items, "root"));
        if (other.name == client.name || theirs.empty())
            continue;
        if (is_at_or_below(theirs, root) || is_at_or_below(root, theirs))
            fail(Code::taken, "the root " + root + " and that of " + other.name + ", " + theirs +
                                  ", lie in one another; neither is removed");
    }
}

} // namespace hostadm::server
