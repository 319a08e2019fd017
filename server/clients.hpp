// SPDX-License-Identifier: MIT
// The clients that boot from this server, put together from bootparams, hosts, ethers and /tftpboot.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "server/boot_area.hpp"
#include "server/client_kind.hpp"

namespace hostadm::server {

struct Client {
    std::string name = {};                   // as bootparams writes it
    std::string address = {}, ethernet = {}; // of the hosts and the Ethernet table; empty: none
    std::string items = {};                  // its entry in bootparams, "KEY=SERVER:PATH KEY=VALUE ..."
    BootLinks links = {};  // in /tftpboot; of one that boots by RPL in /rplboot, of a PC its menu
    bool disabled = false; // kept from booting; the Ethernet address is then the one that it had

    // SERVER:PATH, or the value, of an item, and its path; empty: none.
    std::string item(std::string_view key) const;
    std::string path(std::string_view key) const;
    std::string value(std::string_view key) const { return value_of_item(items, key); }
    ClientKind kind() const { return kind_of(items); }
    std::string root() const { return path("root"); }
    std::string swap() const { return path("swap"); }
    std::string dump() const { return path("dump"); }
    // What it mounts of this server before all else: its root, or what it has instead of one.
    std::string mounted() const;
    // The path of an item in its one spelling, if it is on this server.
    std::string own_path(std::string_view key) const;

    // The name under which it asks for its boot program; empty: it has no address.
    std::string digits() const { return address_digits(address); }
    // What the links lead to, and the implementation architecture in its name, or else in that of a link.
    std::string boot_program() const { return links.empty() ? "" : links.front().target; }
    std::string architecture() const;
    // "yes", "no", "no address", or what is wrong with them.
    std::string boot_links() const;
};

// The options with which a client's directories are shared.
std::string share_options_of(const std::string &client);

// A client by its name, whose case does not count; one that bootparams does not have has no items. Throws Failure
// when a table cannot be read.
Client find_client(const std::string &name);
// The same, and a Failure when bootparams does not have it.
Client known_client(const std::string &name);

// All clients whose root is on this server, in the order of bootparams; then those that have another part of their
// system here, or are installed from here. Throws Failure where the name-service
// switch names a source that nobody can read, or a table cannot be read.
std::vector<Client> all_clients();
// Their names alone, from bootparams: no other table is read, and nothing is looked at that is theirs.
std::vector<std::string> all_client_names();

// Whether the name is this server's own, by which no client is called.
bool is_server_itself(const std::string &name);

// Throws Failure when the path, which belongs to the client, lies in the root of another, or that in it.
void check_root_is_its_own(const Client &client, const std::string &root);

} // namespace hostadm::server
