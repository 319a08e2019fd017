// SPDX-License-Identifier: MIT
#include "server/clients.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>
#include <unistd.h>
#include <unordered_map>

#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "server/bootparams.hpp"
#include "server/client_root.hpp"
#include "server/disabling.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
#include "server/pc_client.hpp"
#include "server/roots.hpp"
#include "server/rpl_area.hpp"

namespace hostadm::server {

namespace {

// The library ends the process at a source that it does not know, and finds no client in one that it cannot
// read. Here it is said which that is.
void check_sources() {
    const sysv_nsw_config *config = sysv_nsw_getconfig("bootparams");
    if (config == nullptr)
        fail(Code::table, base::tr("/etc/nsswitch.conf cannot be read: {1}; it names the sources of "
                                   "bootparams, and a line \"bootparams: files\" will do",
                                   std::strerror(errno)));
    for (const sysv_nsw_lookup *lookup = config->lookups; lookup != nullptr; lookup = lookup->next) {
        const std::string source = lookup->service;
        if (source != "files" && source != "nis" && source != "nisplus")
            fail(Code::table, base::tr("/etc/nsswitch.conf names the source \"{1}\" for bootparams; only "
                                       "files, nis and nisplus can be listed",
                                       source));
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

std::string Client::mounted() const {
    for (const char *key : {"root", "install", "exec", "kvm"})
        if (std::string place = path(key); !place.empty())
            return place;
    return "";
}

std::string Client::boot_links() const {
    if (kind() == ClientKind::rpl)
        return rpl_links_state(rpl_key(ethernet), links);
    if (kind() == ClientKind::pc)
        return address.empty() ? base::tr("no address") : pc_links_state(links);
    if (kind() == ClientKind::dataless && links.empty())
        return base::tr("boots from its disk");
    const std::string digits = address_digits(address);
    return digits.empty() ? base::tr("no address") : boot_links_state(digits, links);
}

std::string Client::architecture() const {
    if (kind() == ClientKind::pc)
        return "pc";
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
    if (client.kind() == ClientKind::rpl)
        client.links = rpl_links_of(rpl_key(client.ethernet));
    else if (client.kind() == ClientKind::pc)
        client.links = pc_links_of(client.address);
    else if (!client.address.empty())
        client.links = boot_links_of(client.address);
    return client;
}

Client known_client(const std::string &name) {
    Client client = find_client(name);
    if (client.items.empty())
        fail(Code::not_found,
             base::tr("there is no client {1} in {2}; hostadm run client/list tells which there are",
                      client.name, bootparams_path));
    return client;
}

namespace {

// The tables that tell of clients, each read once for all of them.
class Tables {
public:
    Client client(const std::string &name, const std::string &items) {
        const std::string key = base::lower_case(name);
        Client client{name, value_of(addresses_, key), value_of(ethernets_, key), items};
        if (const auto own = links_.find(address_digits(client.address)); own != links_.end())
            client.links = own->second;
        if (const std::string kept = value_of(disabled_, key); client.ethernet.empty() && !kept.empty()) {
            client.ethernet = kept;
            client.disabled = true;
        }
        if (client.kind() == ClientKind::rpl)
            client.links = rpl_links_of(rpl_key(client.ethernet));
        if (client.kind() == ClientKind::pc)
            client.links = pc_links_of(client.address);
        return client;
    }

private:
    std::unordered_map<std::string, std::string> addresses_ = hosts_table().keys_by_name(),
                                                 ethernets_ = ethers_table().keys_by_name(),
                                                 disabled_ = disabled_ethernets();
    std::unordered_map<std::string, BootLinks> links_ = all_boot_links();
};

bool has_part_of_its_system_here(const Client &client) {
    return !client.own_path("install").empty() || !client.own_path("exec").empty() ||
           !client.own_path("kvm").empty();
}

// Of the clients whose root is on this server, in the order of bootparams; then of those that have another part here.
std::vector<BootparamsClient> entries_of_own_clients() {
    std::unordered_multimap<std::string, std::string> items;
    const std::vector<BootparamsClient> in_file = client_entries();
    for (const BootparamsClient &entry : in_file)
        items.emplace(entry.name, entry.items);

    check_sources();
    std::vector<BootparamsClient> own;
    std::set<std::string> listed;
    for (const client_node *node = do_bootparams(); node != nullptr; node = node->next) {
        own.push_back({.name = node->name, .items = items_of(*node, items)});
        listed.insert(node->name);
    }
    for (const BootparamsClient &entry : in_file)
        if (!listed.contains(entry.name) &&
            has_part_of_its_system_here({.name = entry.name, .items = entry.items}))
            own.push_back(entry);
    return own;
}

} // namespace

std::vector<Client> all_clients() {
    Tables tables;
    std::vector<Client> clients;
    for (const BootparamsClient &entry : entries_of_own_clients())
        clients.push_back(tables.client(entry.name, entry.items));
    return clients;
}

std::vector<std::string> all_client_names() {
    std::vector<std::string> names;
    for (BootparamsClient &entry : entries_of_own_clients())
        names.push_back(std::move(entry.name));
    return names;
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
            fail(Code::taken,
                 base::tr("the root {1} and that of {2}, {3}, lie in one another; neither is removed", root,
                          other.name, theirs));
    }
}

} // namespace hostadm::server
