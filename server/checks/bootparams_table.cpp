// SPDX-License-Identifier: MIT
// /etc/bootparams, as Debian's rpc.bootparamd reads it.
#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <system_error>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/subjects.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

const std::set<std::string> known_keys{
    "root", "swap",     "dump",     "exec", "kvm", "boottype", "swapsize", "install",     "install_config",
    "term", "rootopts", "swapopts", "ns",   "pvp", "domain",   "timezone", "sysid_config"};

// Marks that an editor of another system, or a hand, left at the end of lines.
Findings odd_line_ends(const BootTable &table) {
    Findings found;
    std::size_t number = 0, first_return = 0;
    base::for_each_line(table.file.text, [&](std::string_view line) {
        ++number;
        if (line.ends_with('\r') && first_return == 0)
            first_return = number;
        const std::string_view content = base::trimmed_end(line);
        if (content.size() < line.size() && content.ends_with('\\') && !line.ends_with('\r') &&
            !base::trimmed(line).starts_with('#'))
            found.push_back({.stage = Stage::parameters,
                             .where = table.place(number),
                             .what = base::tr("blanks stand behind the backslash at the end of the line"),
                             .why = base::tr("rpc.bootparamd does not take the next line for a part of this "
                                             "one, so that the client does not learn what stands there"),
                             .repair = "sed -i 's/\\\\[[:blank:]]*$/\\\\/' " + table.file.path});
    });
    if (first_return != 0)
        found.push_back(
            {.stage = Stage::parameters,
             .where = table.place(first_return),
             .what = base::tr("lines end with a carriage return"),
             .why = base::tr(
                 "rpc.bootparamd takes it for the last letter of a path, which the client then cannot mount"),
             .repair = "sed -i 's/\\r$//' " + table.file.path});
    return found;
}

void add_defect(Findings &found, const Snapshot &server, const CheckedClient &client, const std::string &what,
                const std::string &why, const std::string &repair, Severity severity = Severity::error,
                Stage stage = Stage::parameters) {
    found.push_back({.severity = severity,
                     .stage = stage,
                     .client = client.name,
                     .where = server.place_of(client),
                     .what = what,
                     .why = why,
                     .repair = repair});
}

std::string set_item(const CheckedClient &client, const std::string &key, const std::string &server,
                     const std::string &path) {
    return "hostadm run database/set_bootparams client=" + client.name + " key=" + key + " server=" + server +
           " path=" + path;
}

// A server's name that the client can use: one with an address in the client's network.
std::string good_server_name(const Snapshot &server, const CheckedClient &client) {
    const Interface *interface = server.network.in_network_of(client.number);
    if (interface == nullptr)
        return {};
    for (const Subnet &net : interface->addresses)
        if (const auto lines = server.hosts.with_value(ipv4_value(ipv4_text(net.address))); !lines.empty())
            return lines.front()->names.front();
    return {};
}

// The address of this server in a client's network, or any but the loopback's.
std::string good_address(const Snapshot &server, const CheckedClient &client) {
    if (const Interface *interface = server.network.in_network_of(client.number))
        for (const Subnet &net : interface->addresses)
            if (net.holds(client.number))
                return ipv4_text(net.address);
    return "ADDRESS";
}

// Whether the router that clients are told leads to this server's other networks.
bool has_router(const Snapshot &server, const CheckedClient &client) {
    const auto daemons = server.daemons.named({"rpc.bootparamd", "bootparamd"});
    if (daemons.empty())
        return false;
    const auto router = daemons.front()->value_of('r');
    const auto address = server.address_of(router.value_or(server.host_name));
    return address && server.network.in_network_of(*address) != nullptr &&
           server.network.in_network_of(*address) == server.network.in_network_of(client.number);
}

// The command, to be followed by another, that takes a server's name from the lines of addresses that clients cannot
// reach it at.
std::string take_name_from_wrong_lines(const Snapshot &server, const std::string &name) {
    std::string edits;
    for (const KeyLine *line : server.hosts.with_name(name)) {
        if (!line->is_ipv4())
            continue;
        const std::uint32_t number = ipv4_number(line->value);
        if (server.network.is_own(number) && number >> 24 != 127)
            continue;
        edits += (edits.empty() ? "" : ";") + std::to_string(line->line) +
                 (line->names.size() == 1 ? std::string("d") : "s/[[:blank:]]" + name + "\\b//");
    }
    return edits.empty() ? "" : "sed -i '" + edits + "' " + server.hosts.file.path + " && ";
}

void check_server(Findings &found, const Snapshot &server, const CheckedClient &client, const BootItem &item,
                  Stage stage) {
    const std::string why =
        base::tr("{1} gets no usable answer when it asks where its {2} is", client.name, item.key);
    const std::string name = good_server_name(server, client);
    const auto address = server.address_of(item.server);
    const std::string change = set_item(client, item.key, name.empty() ? server.host_name : name, item.path);
    if (!address) {
        // A name with a mistake in it; or this server's own, which the table does not have.
        const bool own = base::lower_case(item.server) == base::lower_case(server.host_name);
        add_defect(
            found, server, client,
            base::tr("the server of {1}, {2}, has no address here", item.key, item.server),
            base::tr("rpc.bootparamd gives no answer when {1} asks for its {2}", client.name, item.key),
            own || name.empty() ? "hostadm run database/set_host hostname=" + item.server +
                                      " address=" + good_address(server, client)
                                : change,
            Severity::error, stage);
        return;
    }
    if (*address >> 24 == 127) {
        const std::string remove = take_name_from_wrong_lines(server, item.server);
        add_defect(found, server, client,
                   base::tr("the server of {1}, {2}, has the address {3} here", item.key, item.server,
                            ipv4_text(*address)),
                   base::tr("{1} would look for its {2} on itself", client.name, item.key),
                   name.empty() || name == item.server
                       ? remove + "hostadm run database/set_host hostname=" + item.server +
                             " address=" + good_address(server, client)
                       : change,
                   Severity::error, stage);
        return;
    }
    std::error_code error;
    if (!server.network.is_own(*address)) {
        if (server.network.in_network_of(client.number) == nullptr)
            return; // the interface has lost its address, which is told
        // Perhaps it really is another server's. What lies here, or bears this server's name, is meant to be here.
        const bool ours = base::lower_case(item.server) == base::lower_case(server.host_name) ||
                          fs::exists(item.path, error);
        if (ours)
            add_defect(found, server, client,
                       base::tr("the server of {1}, {2}, has the address {3}, which is none of this server's",
                                item.key, item.server, ipv4_text(*address)),
                       base::tr("{1} would look for its {2} there, and it lies here", client.name, item.key),
                       name.empty() || name == item.server
                           ? take_name_from_wrong_lines(server, item.server) +
                                 "hostadm run database/set_host hostname=" + item.server +
                                 " address=" + good_address(server, client)
                           : change,
                       Severity::error, stage);
        return;
    }
    const Interface *theirs = server.network.in_network_of(client.number);
    if (theirs != nullptr && server.network.in_network_of(*address) != theirs && !has_router(server, client))
        add_defect(found, server, client,
                   base::tr("the server of {1}, {2}, has the address {3}, which is not in the network of "
                            "{4}, and no router there is told to it",
                            item.key, item.server, ipv4_text(*address), client.name),
                   base::tr("{1} cannot reach that address", client.name), name.empty() ? why : change,
                   Severity::error, stage);
}

void check_item(Findings &found, const Snapshot &server, const CheckedClient &client, const BootItem &item) {
    const Stage stage = item.key == "root" ? Stage::parameters : Stage::swap;
    const std::string silence =
        base::tr("rpc.bootparamd gives no answer when {1} asks for its {2}", client.name, item.key);
    const std::string repair = set_item(client, item.key, server.host_name,
                                        item.path.starts_with('/') ? item.path
                                        : item.key == "root"       ? "/export/root/" + client.name
                                                                   : "PATH");
    if (!item.has_server || item.server.empty()) {
        add_defect(found, server, client, base::tr("{1} names no server", item.text), silence, repair,
                   Severity::error, stage);
        return;
    }
    if (!item.path.starts_with('/') || item.path.find_first_of(",;") != item.path.npos) {
        add_defect(found, server, client, base::tr("{1} names no path", item.text),
                   base::tr("{1} cannot mount what it is told", client.name), repair, Severity::error, stage);
        return;
    }
    check_server(found, server, client, item, stage);
}

// Gives a name of a shared file or directory one of its own.
std::string separate(const Snapshot &server, const std::string &path, const struct stat &there) {
    if (S_ISDIR(there.st_mode)) {
        const Mount *mount = mount_of(server.mounts, path);
        return mount != nullptr && mount->point == path ? "umount " + path
                                                        : "cp -a " + path + "/. " + path + ".own && rm " +
                                                              path + " && mv " + path + ".own " + path;
    }
    return "cp -a --sparse=always " + path + " " + path + ".own && mv " + path + ".own " + path;
}

// What a client that installs itself is told beside its root: directories that it mounts.
void check_install(Findings &found, const Snapshot &server, const CheckedClient &client,
                   const BootItem &item) {
    const auto add = [&](const std::string &what, const std::string &repair) {
        found.push_back({.stage = Stage::start,
                         .client = client.name,
                         .where = server.place_of(client),
                         .what = what,
                         .why = base::tr("{1} starts and finds nothing to install", client.name),
                         .repair = repair});
    };
    const std::string name = item.key + ", " + item.server + ":" + item.path;
    std::error_code error;
    if (!item.has_server || item.server.empty() || !item.path.starts_with('/')) {
        add(base::tr("{1} names no server and path", item.text),
            set_item(client, item.key, server.host_name, "PATH"));
    } else if (!server.address_of(item.server)) {
        add(base::tr("the server of {1}, has no address here", name),
            set_item(client, item.key, server.host_name, item.path));
    } else if (server.is_this_server(item.server) && !fs::exists(item.path, error)) {
        add(base::tr("the {1}, is not there", name), set_item(client, item.key, item.server, "PATH"));
    } else if (server.is_this_server(item.server) && fs::is_directory(item.path, error)) {
        bool reads = false;
        for (fs::path above = item.path; above.has_relative_path() && !reads; above = above.parent_path())
            if (const auto share = server.shares.find(above); share != server.shares.end())
                reads = access_by_options(share->second, client.caller).read;
        const Export *exported = export_of(server.exports, item.path);
        if (!reads && (exported == nullptr || !access_by_export(*exported, client.caller).read))
            add(base::tr("the {1}, is not shared to {2}", name, client.name),
                "hostadm run filesystem/share pathname=" + item.path + " options=ro,anon=0");
    }
}

} // namespace

Findings bootparams_of_server(const Snapshot &server) {
    const BootTable &table = server.bootparams;
    if (table.file.error == ENOENT)
        return {}; // no clients: the daemon's own check tells of the daemon
    if (table.file.error != 0)
        return {{.stage = Stage::name,
                 .where = table.file.path,
                 .what = base::tr("the table cannot be read"),
                 .why = base::tr("no client gets an answer when it asks for its name")}};
    Findings found = odd_line_ends(table);
    // Who uses which root, swap and dump.
    std::map<std::string, std::pair<std::string, std::string>> users;
    std::map<std::pair<dev_t, ino_t>, std::pair<std::string, std::string>> users_of_file;
    for (const BootLine &line : table.lines) {
        const CheckedClient *client = server.client(line.name);
        if (line.name.find_first_of("=") != line.name.npos) {
            found.push_back(
                {.stage = Stage::parameters,
                 .where = table.place(line.line),
                 .what = base::tr("the line begins with {1}, so that it is taken for a client; the line "
                                  "before it does not end with a backslash",
                                  line.name),
                 .why = base::tr("the client that it belongs to does not learn what stands there"),
                 .repair = "sed -i '" + std::to_string(line.line > 1 ? line.line - 1 : 1) +
                           "s/[[:blank:]\\\\]*$/ \\\\/' " + table.file.path});
            continue;
        }
        if (line.name.find('*') != line.name.npos) {
            found.push_back(
                {.severity = Severity::warning,
                 .stage = Stage::name,
                 .where = table.place(line.line),
                 .what = base::tr("the name {1} stands for no client", line.name),
                 .why = base::tr("rpc.bootparamd here knows no patterns: each client needs a line"),
                 .repair = "sed -i '" + std::to_string(line.line) + "d' " + table.file.path});
            continue;
        }
        if (line.name.find(':') != line.name.npos) {
            std::string name = line.name;
            name.resize(name.find(':'));
            found.push_back(
                {.stage = Stage::name,
                 .where = table.place(line.line),
                 .what = base::tr("\"{1}\" is no host name", line.name),
                 .why = base::tr("{1} gets no answer when it asks for its name", name),
                 .repair = "sed -i '" + std::to_string(line.line) + "s/:/ /' " + table.file.path});
            continue;
        }
        const auto places = table.by_name.find(base::lower_case(line.name));
        if (const BootLine &first = table.lines[places->second.front()]; first.line != line.line)
            found.push_back(
                {.severity = Severity::warning,
                 .stage = Stage::parameters,
                 .client = client == nullptr ? "" : client->name,
                 .where = table.place(line.line),
                 .what = base::tr("{1} has a second entry; the first is in line {2}", line.name, first.line),
                 .why = base::tr("only the first counts, whatever is changed in the other"),
                 .repair = "sed -i '" + std::to_string(line.line) + "d' " + table.file.path});
        if (client == nullptr || server.bootparams.lines[client->entry].line != line.line)
            continue;
        for (const char *key : {"root", "swap", "dump"}) {
            const BootItem *item = line.item(key);
            if (item == nullptr || !item->path.starts_with('/'))
                continue;
            // One file may have two names, by links or mounts.
            struct stat there {};
            if (stat(item->path.c_str(), &there) == 0 && !users.contains(item->path)) {
                const auto [other, first] =
                    users_of_file.try_emplace({there.st_dev, there.st_ino}, line.name, key);
                if (!first && base::lower_case(other->second.first) != base::lower_case(line.name) &&
                    (std::string_view(key) == "root" || !S_ISDIR(there.st_mode)))
                    found.push_back(
                        {.severity = Severity::error,
                         .stage = item->key == "root" ? Stage::root : Stage::swap,
                         .client = line.name,
                         .where = item->path,
                         .what =
                             base::tr("the {1} of {2} and the {3} of {4} are the same, by a link or a mount",
                                      key, line.name, other->second.second, other->second.first),
                         .why = base::tr("two clients that use one {1} destroy each other's data", key),
                         .repair = separate(server, item->path, there)});
            }
            const auto [user, fresh] = users.try_emplace(item->path, line.name, key);
            // A directory may hold the swap files of many; the same root or file may not be used twice.
            std::error_code error;
            if (fresh || base::lower_case(user->second.first) == base::lower_case(line.name) ||
                (std::string_view(key) != "root" && fs::is_directory(item->path, error)))
                continue;
            found.push_back(
                {.severity = Severity::error,
                 .stage = item->key == "root" ? Stage::root : Stage::swap,
                 .client = line.name,
                 .where = table.place(line.line),
                 .what = base::tr("{1} is the {2} of {3} and the {4} of {5}", item->path, key, line.name,
                                  user->second.second, user->second.first),
                 .why = base::tr("two clients that use one {1} destroy each other's data", key),
                 .repair = set_item(*client, key, item->server,
                                    (item->key == "root" ? "/export/root/" : "/export/swap/") + client->name +
                                        (item->key == "root" ? "" : "/" + item->key))});
        }
    }
    return found;
}

Findings bootparams_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    const BootLine &entry = server.entry_of(client);
    std::set<std::string> keys;
    for (const BootItem &item : entry.items) {
        const std::string low = base::lower_case(item.key);
        if (item.text.find('=') == item.text.npos) {
            add_defect(found, server, client, base::tr("\"{1}\" is no item KEY=SERVER:PATH", item.text),
                       base::tr("rpc.bootparamd passes over it"),
                       "sed -i '" + std::to_string(entry.line) + "s/[[:blank:]]" + item.text + "\\b//' " +
                           server.bootparams.file.path,
                       Severity::warning);
            continue;
        }
        if (low != item.key && known_keys.contains(low))
            add_defect(found, server, client, base::tr("the key {1} is written in capitals", item.key),
                       base::tr("rpc.bootparamd gives no answer when {1} asks for its {2}", client.name, low),
                       "sed -i '" + std::to_string(entry.line) + "s/" + item.key + "=/" + low + "=/' " +
                           server.bootparams.file.path);
        if (!keys.insert(item.key).second)
            add_defect(found, server, client, base::tr("{1} is given twice", item.key),
                       base::tr("only the first counts, whatever is changed in the other"),
                       "sed -i '" + std::to_string(entry.line) + "s|[[:blank:]]" + item.text + "||' " +
                           server.bootparams.file.path,
                       Severity::warning);
    }
    for (const char *key : {"root", "swap", "dump"})
        if (const BootItem *item = entry.item(key))
            check_item(found, server, client, *item);
    for (const char *key : {"install", "install_config", "sysid_config"})
        if (const BootItem *item = entry.item(key); item != nullptr && item->text.ends_with(item->path))
            check_install(found, server, client, *item);
    // What boots from its own disk asks for other things.
    const bool asks_for_root = client.kind != ClientKind::dataless && client.kind != ClientKind::diskfull &&
                               client.kind != ClientKind::install && entry.item("ROOT") == nullptr &&
                               entry.item("Root") == nullptr;
    if (entry.item("root") == nullptr && asks_for_root)
        add_defect(found, server, client, base::tr("{1} has no root", client.name),
                   base::tr("rpc.bootparamd gives no answer when {1} asks for its root", client.name),
                   set_item(client, "root", server.host_name, "/export/root/" + client.name));
    return found;
}

} // namespace hostadm::server
