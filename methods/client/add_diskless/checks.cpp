// SPDX-License-Identifier: MIT
#include "methods/client/add_diskless/checks.hpp"

#include <arpa/inet.h>
#include <cstring>
#include <filesystem>
#include <netinet/ether.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/text.hpp"
#include "methods/client/add_diskless/failure.hpp"
#include "methods/client/add_diskless/paths.hpp"
#include "server/adapters.hpp"
#include "server/boot_links.hpp"
#include "server/client_entry.hpp"
#include "server/clients.hpp"
#include "server/host_tables.hpp"
#include "server/local_host.hpp"
#include "server/roots.hpp"

namespace hostadm::diskless {

using namespace hostadm::method;
using namespace hostadm::server;
namespace fs = std::filesystem;

namespace {

void check_addresses(const Call &call, const Client &client) {
    const in_addr_t address = ntohl(inet_addr(client.address.c_str()));
    if (address >> 24 == 0 || address >> 24 == 127 || address >> 28 >= 14)
        refuse(client.address + " is no address of a host");
    if (is_own_address(client.address))
        fail(client.address + " is an address of this server");
    if (base::lower_case(client.hostname) == base::lower_case(local_host_name()) ||
        base::lower_case(client.hostname) == "localhost")
        fail(client.hostname + " is this server");
    if (call.given("server") && address_of_host(client.server).empty())
        fail("the server " + client.server +
             " has no address here, so the client could not be told where its root is; add a line to "
             "/etc/hosts, or give another name");
    const ether_addr *ethernet = ether_aton(client.ethernet.c_str());
    constexpr std::uint8_t nobody[6] = {};
    if (ethernet == nullptr || (ethernet->ether_addr_octet[0] & 1) != 0 ||
        std::memcmp(ethernet->ether_addr_octet, nobody, sizeof nobody) == 0)
        refuse(client.ethernet + " is no Ethernet address of a single host");
}

void check_table(const HostTable &table, const std::string &key, const std::string &name) {
    const HostTable::Added found = table.examine(key, name);
    if (found.outcome == HostTable::Outcome::conflict)
        fail(found.conflict);
}

// Two clients must not share a file, and neither may reach the other's root through its own.
void check_other_client(const Client &client, const BootparamsClient &other, RealPaths &real_paths) {
    for (const std::string key : {"root", "swap", "dump"}) {
        const std::string item = path_of_item(other.items, key);
        if (item.empty() || item.front() != '/')
            continue;
        const std::string theirs = real_paths.of(item);
        for (const std::string &ours : {client.root, client.swap, client.dump}) {
            if (ours == theirs)
                fail(ours + " is the " + key + " of " + other.name);
            if (key == "root" && !ours.empty() && is_at_or_below(ours, theirs))
                fail(ours + " lies in the root of " + other.name);
        }
        if (is_at_or_below(theirs, client.root))
            fail(client.root + " holds the " + key + " of " + other.name + ", " + theirs);
    }
}

void check_other_clients(const Client &client) {
    RealPaths real_paths;
    for (const BootparamsClient &other : client_entries()) {
        if (base::lower_case(other.name) != base::lower_case(client.hostname))
            check_other_client(client, other, real_paths);
        else if (other.name != client.hostname)
            fail(client.hostname + " is a client already, written " + other.name + " in /etc/bootparams");
    }
}

// Whether two items SERVER:PATH mean the same, however their paths are spelled.
bool is_same_item(const std::string &one, const std::string &other) {
    const auto plain = [](const std::string &item) {
        const std::size_t path = item.find(':') + 1;
        return item.substr(0, path) + real_path_of(item.substr(path));
    };
    return plain(one) == plain(other);
}

// Whether bootparams has this client with this root already; an item that it lacks may still be added.
bool check_entry(const Client &client) {
    const std::string items = client_items(client.hostname);
    const struct {
        const char *key;
        const std::string &path;
    } wanted[] = {{"root", client.root}, {"swap", client.swap}, {"dump", client.dump}};
    for (const auto &[key, path] : wanted) {
        const std::string there = item_of(items, key);
        const std::string ours = path.empty() ? "" : client.server + ":" + path;
        if (!there.empty() && !is_same_item(there, ours))
            fail(client.hostname + " is a client already, with " + key + "=" + there + " in /etc/bootparams" +
                 (ours.empty() ? "" : ", not " + ours) + "; remove it first (client/remove)");
    }
    return !item_of(items, "root").empty();
}

void check_root(const Client &client, bool known) {
    if (is_near_server_root(client.root))
        fail(client.root + " is too near to the root of this server; name a rootpath that lies deeper");
    for (const std::string &file : {client.swap, client.dump})
        if (!file.empty() && is_at_or_below(client.root, file))
            fail("the root " + client.root + " cannot lie at " + file + ", which is to be a file");
    if (!exists(client.root))
        return;
    if (fs::is_symlink(client.root))
        fail(client.root + " is a symbolic link; give the directory that it leads to as rootpath");
    if (!is_directory(client.root))
        fail(client.root + " is no directory");
    if (!known && !fs::is_empty(client.root))
        fail(client.root + " holds files already, and " + client.hostname +
             " does not boot from it; remove it or name another rootpath");
}

void check_source(const Call &call, const Client &client) {
    std::vector<std::string> sources = client.packages;
    if (!client.tree.empty())
        sources.push_back(client.tree);
    for (const std::string &source : sources) {
        if (!is_directory(source))
            fail("there is no operating system at " + source + ": no such directory");
        if (const std::string defect = defect_of_source(client.root, source); !defect.empty())
            fail(defect);
    }
    if (!client.tree.empty() && !is_tree(client.tree))
        fail(client.tree + " is no root file system: it holds neither etc nor usr");
    for (const std::string &directory : client.packages)
        if (!holds_packages(directory))
            fail(directory + " holds no packages (folders with a pkginfo file in them)");
    if (call.given("boot_program")) {
        if (std::error_code error; !fs::is_regular_file(call.get("boot_program"), error))
            fail("there is no boot program " + call.get("boot_program"));
    } else if (!exists(std::string(tftpboot) + "/" + client.boot_name)) {
        if (const std::string where = client.hierarchy.empty() ? client.tree : client.hierarchy;
            !where.empty())
            find_os(where, client.identity);
    }
}

// A client that has its root boots the system that is in it.
void check_boot_program(const Client &client, bool known) {
    if (!known || !exists(client.root))
        return;
    for (const BootLink &link : boot_links_of(client.address))
        if (!link.target.empty() && link.target != client.boot_name)
            fail(client.hostname + " is a client already and boots " + link.target + ", not " +
                 client.boot_name + "; remove it first (client/remove)");
}

} // namespace

void check_tools() {
    if (geteuid() != 0)
        fail("only root may add a client");
    if (const std::string missing = missing_command("/usr/sbin/share", "shares directories");
        !missing.empty())
        fail(missing);
}

// A swap file that is there already must be like the one that would be made.
void check_swap(const Client &client) {
    const std::string &path = client.swap;
    const std::uint64_t size = client.swap_size;
    struct stat file {};
    if (lstat(path.c_str(), &file) != 0)
        return;
    if (!S_ISREG(file.st_mode))
        fail(path + " is no plain file");
    if (static_cast<std::uint64_t>(file.st_size) != size)
        fail(path + " has " + std::to_string(file.st_size) + " bytes already, not " + std::to_string(size) +
             "; give that swap_size or remove the file");
}

// A dump file may hold a dump by now.
void check_dump(const Client &client) {
    const std::string &path = client.dump;
    if (std::error_code error; exists(path) && !fs::is_regular_file(fs::symlink_status(path, error)))
        fail(path + " is no plain file");
}

bool check(const Call &call, const Client &client) {
    check_addresses(call, client);
    check_table(hosts_table(), client.address, client.hostname);
    check_table(ethers_table(), client.ethernet, client.hostname);
    check_other_clients(client);
    const bool known = check_entry(client);
    check_root(client, known);
    if (!known || !exists(client.root))
        check_source(call, client);
    check_boot_program(client, known);
    check_swap(client);
    check_dump(client);
    return known;
}

} // namespace hostadm::diskless
