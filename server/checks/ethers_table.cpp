// SPDX-License-Identifier: MIT
// /etc/ethers: whose Ethernet address is whose.
#include <algorithm>
#include <set>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

// The names by which lines mean a client: its own, its aliases, its address.
bool means(const KeyLine &line, const CheckedClient &client) {
    return std::any_of(line.names.begin(), line.names.end(), [&](const std::string &name) {
        return name == client.address || std::find(client.caller.names.begin(), client.caller.names.end(),
                                                   base::lower_case(name)) != client.caller.names.end();
    });
}

std::string remove_line(const Snapshot &server, std::size_t line) {
    return "sed -i '" + std::to_string(line) + "d' " + server.ethers.file.path;
}

// The Ethernet addresses of no host that is known: the client's own may be among them.
const KeyLine *line_without_host(const Snapshot &server) {
    const KeyLine *lost = nullptr;
    for (const KeyLine &line : server.ethers.lines) {
        if (line.value.empty() || line.names.empty() || !server.hosts.with_name(line.names[0]).empty() ||
            !ipv4_value(line.names[0]).empty())
            continue;
        if (lost != nullptr)
            return nullptr;
        lost = &line;
    }
    return lost;
}

Finding no_line(const Snapshot &server, const CheckedClient &client) {
    Finding finding{
        .stage = Stage::address,
        .client = client.name,
        .where = server.ethers.file.path,
        .what = base::tr("there is no line for {1}", client.name),
        .why = base::tr("{1} gets no answer when it asks for its address by reverse ARP", client.name),
        .repair = "printf 'ETHERNET-ADDRESS\\t" + client.name + "\\n' >>" + server.ethers.file.path};
    for (const KeyLine &line : server.ethers.lines) {
        if (!line.value.empty() || !means(line, client))
            continue;
        std::string dashed = line.key;
        std::replace_if(
            dashed.begin(), dashed.end(), [](char c) { return c == '-' || c == '.'; }, ':');
        const bool mendable = !ethernet_value(dashed).empty();
        finding.where = server.ethers.place(line.line);
        finding.what = base::tr(
            "\"{1}\" is no Ethernet address as rarpd reads it, so that the line of {2} is passed over",
            line.key, client.name);
        finding.repair = "sed -i '" + std::to_string(line.line) + "s/^[[:blank:]]*[^[:blank:]]*/" +
                         (mendable ? dashed : "ETHERNET-ADDRESS") + "/' " + server.ethers.file.path;
        return finding;
    }
    if (const KeyLine *lost = line_without_host(server)) {
        finding.where = server.ethers.place(lost->line);
        finding.what +=
            base::tr("; {1} belongs to \"{2}\", which is no host here", lost->key, lost->names[0]);
        finding.repair = "sed -i '" + std::to_string(lost->line) + "s/" + lost->names[0] + "/" + client.name +
                         "/' " + server.ethers.file.path;
    }
    return finding;
}

} // namespace

Findings ethers_table_of_server(const Snapshot &server) {
    Findings found;
    const TableText &file = server.ethers.file;
    if (file.error != 0 && !server.clients.empty())
        return {{.where = file.path,
                 .what = file.error == ENOENT ? base::tr("the table is missing")
                                              : base::tr("the table cannot be read"),
                 .why = base::tr("no client gets an answer when it asks for its address by reverse ARP"),
                 .repair = "printf 'ETHERNET-ADDRESS\\tCLIENT\\n' >>" + file.path}};
    for (const auto &[value, places] : server.ethers.by_value) {
        const KeyLine &first = server.ethers.lines[places.front()];
        for (std::size_t i = 1; i < places.size(); ++i) {
            const KeyLine &other = server.ethers.lines[places[i]];
            const bool same = base::lower_case(first.names[0]) == base::lower_case(other.names[0]);
            const CheckedClient *client = server.client(other.names[0]);
            found.push_back(
                {.severity = same ? Severity::warning : Severity::error,
                 .stage = Stage::address,
                 .client = client == nullptr ? "" : client->name,
                 .where = server.ethers.place(other.line),
                 .what = base::tr("{1} stands twice: for {2} in line {3} and for {4}", other.key,
                                  first.names[0], first.line, other.names[0]),
                 .why = same ? base::tr("only the first line counts")
                             : base::tr("only the first line counts: the machine is told the address of {1}",
                                        first.names[0]),
                 .repair = remove_line(server, other.line)});
        }
    }
    // A machine that is set up in part: it is given an address and a boot program, and then nothing.
    for (const KeyLine &line : server.ethers.lines) {
        if (line.value.empty() || line.names.empty() || server.client(line.names[0]) != nullptr)
            continue;
        const auto hosts = server.hosts.with_name(line.names[0]);
        if (hosts.empty() || !hosts.front()->is_ipv4() ||
            std::any_of(hosts.front()->names.begin(), hosts.front()->names.end(),
                        [&](const std::string &name) { return server.client(name) != nullptr; }))
            continue;
        char digits[9];
        std::snprintf(digits, sizeof digits, "%08X", ipv4_number(hosts.front()->value));
        if (server.boot_area.names.contains(digits))
            found.push_back(
                {.stage = Stage::name,
                 .where = server.bootparams.file.path,
                 .what = base::tr("{1} has an Ethernet address and a boot program, but no entry here",
                                  line.names[0]),
                 .why = base::tr("{1} gets its boot program, and then no answer when it asks for its name",
                                 line.names[0]),
                 .repair = "hostadm run database/set_bootparams client=" + line.names[0] +
                           " items='root=" + server.host_name + ":/export/root/" + line.names[0] +
                           " swap=" + server.host_name + ":/export/swap/" + line.names[0] + "/swap'"});
    }
    return found;
}

Findings ethers_table_of_client(const Snapshot &server, const CheckedClient &client) {
    if (server.ethers.file.error != 0)
        return {};
    if (client.ethernet.empty())
        return {no_line(server, client)};
    Findings found;
    std::set<std::string> own_values;
    const KeyLine *first = nullptr;
    std::vector<const KeyLine *> lines;
    for (const std::string &name : client.caller.names)
        for (const KeyLine *line : server.ethers.with_name(name))
            lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    for (const KeyLine *line : lines) {
        const bool group = (line->value[0] & 1) != 0;
        const bool nobody = line->value == std::string(6, '\0');
        if (group || nobody)
            found.push_back(
                {.stage = Stage::address,
                 .client = client.name,
                 .where = server.ethers.place(line->line),
                 .what = base::tr("{1} is no Ethernet address of a single machine", line->key),
                 .why = base::tr("{1} has another one, and gets no answer when it asks", client.name),
                 .repair = "sed -i '" + std::to_string(line->line) + "s/^[^[:blank:]]*/ETHERNET-ADDRESS/' " +
                           server.ethers.file.path});
        for (const Interface &interface : server.network.interfaces)
            if (!interface.ethernet.empty() && interface.ethernet == line->value)
                found.push_back(
                    {.stage = Stage::address,
                     .client = client.name,
                     .where = server.ethers.place(line->line),
                     .what = base::tr("{1} is the Ethernet address of this server's {2}", line->key,
                                      interface.name),
                     .why = base::tr("{1} has another one, and gets no answer when it asks", client.name),
                     .repair = "sed -i '" + std::to_string(line->line) +
                               "s/^[^[:blank:]]*/ETHERNET-ADDRESS/' " + server.ethers.file.path});
        if (first == nullptr)
            first = line;
        else if (line->value != first->value)
            found.push_back({.severity = Severity::warning,
                             .stage = Stage::address,
                             .client = client.name,
                             .where = server.ethers.place(line->line),
                             .what = base::tr("{1} has two Ethernet addresses, {2} in line {3} and {4}",
                                              client.name, first->key, first->line, line->key),
                             .why = base::tr("two machines that are on at a time would get the same address"),
                             .repair = remove_line(server, line->line)});
    }
    for (const Neighbour &known : server.network.neighbours)
        if (known.permanent && known.address == client.address && first != nullptr &&
            known.ethernet != first->value)
            found.push_back(
                {.stage = Stage::boot_program,
                 .client = client.name,
                 .where = base::tr("ARP table, {1}", known.interface),
                 .what = base::tr("the kernel was told another Ethernet address for {1} than {2} has",
                                  client.address, server.ethers.file.path),
                 .why = base::tr("no answer to {1} arrives there", client.name),
                 .repair = "ip neigh del " + client.address + " dev " + known.interface});
    return found;
}

} // namespace hostadm::server
