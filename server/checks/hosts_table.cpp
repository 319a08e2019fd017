// SPDX-License-Identifier: MIT
// /etc/hosts: the client's address, and nobody else's.
#include <algorithm>
#include <set>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/boot_area.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

// client1 and client1.example.com are one host.
std::string short_name(const std::string &name) {
    return base::lower_case(name.substr(0, name.find('.')));
}

bool share_a_name(const KeyLine &one, const KeyLine &other) {
    std::set<std::string> names;
    for (const std::string &name : one.names)
        names.insert(short_name(name));
    return std::any_of(other.names.begin(), other.names.end(),
                       [&](const std::string &name) { return names.contains(short_name(name)); });
}

// The address whose links lie in the boot area without a host to them, if there is just one.
std::string address_without_host(const Snapshot &server) {
    std::set<std::string> lost;
    for (const auto &[name, link] : server.boot_area.names) {
        if (name.size() != 8)
            continue;
        const auto number = static_cast<std::uint32_t>(std::stoul(name, nullptr, 16));
        std::string value;
        for (const int shift : {24, 16, 8, 0})
            value += static_cast<char>(number >> shift);
        if (server.hosts.with_value(value).empty())
            lost.insert(ipv4_text(number));
    }
    return lost.size() == 1 ? *lost.begin() : "";
}

Finding no_address(const Snapshot &server, const CheckedClient &client) {
    const std::string lost = address_without_host(server);
    Finding finding{
        .stage = Stage::address,
        .client = client.name,
        .where = server.hosts.file.path,
        .what = base::tr("{1} has no address", client.name),
        .why = base::tr("{1} gets no answer when it asks for its address by reverse ARP", client.name),
        .repair = "hostadm run database/set_host hostname=" + client.name +
                  " address=" + (lost.empty() ? "ADDRESS" : lost)};
    for (const KeyLine &line : server.hosts.lines) {
        if (std::none_of(line.names.begin(), line.names.end(), [&](const std::string &name) {
                return base::lower_case(name) == base::lower_case(client.name);
            }))
            continue;
        finding.where = server.hosts.place(line.line);
        if (line.value.empty())
            finding.what += base::tr(": \"{1}\" is no address, so that the line is passed over", line.key);
        else
            finding.what += base::tr(" of IPv4, only {1}", line.key);
    }
    return finding;
}

} // namespace

Findings hosts_table_of_server(const Snapshot &server) {
    Findings found;
    const TableText &file = server.hosts.file;
    if (file.error != 0)
        return {{.where = file.path,
                 .what = file.error == ENOENT ? base::tr("the table is missing")
                                              : base::tr("the table cannot be read"),
                 .why = base::tr("no client has an address, and none gets an answer when it asks for it"),
                 .repair = "printf '127.0.0.1\\tlocalhost\\n' >" + file.path}};
    for (const KeyLine &line : server.hosts.lines)
        // Of a client it is told with the client.
        if (line.value.empty() && (line.names.empty() || server.client(line.names.front()) == nullptr))
            found.push_back(
                {.severity = Severity::warning,
                 .where = server.hosts.place(line.line),
                 .what = line.names.empty()
                             ? base::tr("the line is passed over: \"{1}\" has no name", line.key)
                             : base::tr("the line is passed over: \"{1}\" is no address", line.key),
                 .why = base::tr("the host of this line has no address here"),
                 .repair = "sed -i '" + std::to_string(line.line) + "d' " + file.path});
    return found;
}

Findings hosts_table_of_client(const Snapshot &server, const CheckedClient &client) {
    if (server.hosts.file.error != 0)
        return {};
    if (client.address.empty())
        return {no_address(server, client)};
    Findings found;
    const std::string value = ipv4_value(client.address);
    const KeyLine *own = nullptr;
    for (const KeyLine *line : server.hosts.with_name(client.name)) {
        if (!line->is_ipv4())
            continue;
        if (own == nullptr)
            own = line;
        else if (line->value != own->value)
            found.push_back(
                {.stage = Stage::address,
                 .client = client.name,
                 .where = server.hosts.place(line->line),
                 .what = base::tr("{1} has a second address, {2}, besides {3} in line {4}", client.name,
                                  line->key, own->key, own->line),
                 .why = base::tr("{1} may be told either when it asks for its address", client.name),
                 .repair = "sed -i '" + std::to_string(line->line) + "d' " + server.hosts.file.path});
    }
    for (const KeyLine *line : server.hosts.with_value(value)) {
        if (share_a_name(*line, *own))
            continue;
        const bool first = line->line < own->line;
        found.push_back(
            {.severity = first ? Severity::error : Severity::warning,
             .stage = first ? Stage::name : Stage::address,
             .client = client.name,
             .where = server.hosts.place(line->line),
             .what = base::tr("the address of {1}, {2}, belongs to {3} as well", client.name, client.address,
                              line->names.front()),
             .why = first ? base::tr("{1} is taken for {2} when it asks for its name, and gets no answer",
                                     client.name, line->names.front())
                          : base::tr("two machines with one address disturb each other"),
             .repair = "sed -i '" + std::to_string(line->line) + "d' " + server.hosts.file.path});
    }
    const std::uint32_t number = client.number;
    const Interface *interface = server.network.in_network_of(number);
    std::string defect;
    if (server.network.is_own(number))
        defect = base::tr("is an address of this server");
    else if (number >> 24 == 127 || number >> 28 >= 14 || number >> 24 == 0)
        defect = base::tr("is no address of a host");
    else if (interface != nullptr)
        for (const Subnet &net : interface->addresses)
            if (net.holds(number) && net.mask < 0xfffffffe && (number == net.first() || number == net.last()))
                defect = base::tr("is the address of its whole network");
    if (!defect.empty())
        found.push_back(
            {.stage = Stage::address,
             .client = client.name,
             .where = server.hosts.place(own->line),
             .what = base::tr("the address of {1}, {2}, {3}", client.name, client.address, defect),
             .why = base::tr("{1} cannot use the address that it is told", client.name),
             .repair = "sed -i '" + std::to_string(own->line) + "s/^[^[:blank:]]*/ADDRESS/' " +
                       server.hosts.file.path});
    return found;
}

} // namespace hostadm::server
