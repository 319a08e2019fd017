// SPDX-License-Identifier: MIT
// /etc/nsswitch.conf: whether the daemons look into the tables of this server, and into them first.
#include <algorithm>
#include <set>

#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

// Sources that answer for a host that the files have too, or keep it waiting.
const std::set<std::string_view> foreign{"dns",  "nis",   "nisplus", "ldap", "sss",
                                         "mdns", "mdns4", "mdns6",   "wins", "hesiod"};

void check_database(Findings &found, const Snapshot &server, const std::string &database, Stage stage,
                    const std::string &table, const std::string &why) {
    const auto line = std::find_if(server.sources.begin(), server.sources.end(),
                                   [&](const SwitchLine &one) { return one.database == database; });
    if (line == server.sources.end())
        return; // the usual order begins with the files
    const std::string place = server.name_switch.path + ":" + std::to_string(line->line);
    const std::string repair = "sed -i '" + std::to_string(line->line) + "s/:.*/: files" +
                               (database == "hosts" ? " dns" : "") + "/' " + server.name_switch.path;
    std::string before;
    for (std::size_t i = 0; i < line->sources.size(); ++i) {
        const std::string &source = line->sources[i];
        if (source == "files" || source == "compat") {
            if (!before.empty())
                found.push_back(
                    {.severity = Severity::error,
                     .stage = stage,
                     .where = place,
                     .what = base::tr("{1} are looked up in {2} before {3}", database, before, table),
                     .why = base::tr("{1}, or late", why),
                     .repair = repair});
            return;
        }
        if (foreign.contains(source))
            before = source;
        if (line->actions[i].find("NOTFOUND=return") != std::string::npos)
            break;
    }
    found.push_back({.stage = stage,
                     .where = place,
                     .what = base::tr("{1} are not looked up in {2}", database, table),
                     .why = why,
                     .repair = repair});
}

} // namespace

Findings name_service_of_server(const Snapshot &server) {
    Findings found;
    if (server.name_switch.error != 0)
        return {{.severity = Severity::error,
                 .stage = Stage::name,
                 .where = server.name_switch.path,
                 .what = server.name_switch.error == ENOENT ? base::tr("the file is missing")
                                                            : base::tr("the file cannot be read"),
                 .why = base::tr("which tables the daemons and hostadm look into is left to chance"),
                 .repair = "printf 'hosts: files dns\\nethers: files\\nbootparams: files\\n' >" +
                           server.name_switch.path}};
    check_database(
        found, server, "hosts", Stage::address, server.hosts.file.path,
        base::tr("clients get no answer, or a wrong one, when they ask for their address and their name"));
    check_database(found, server, "ethers", Stage::address, server.ethers.file.path,
                   base::tr("no client gets an answer when it asks for its address by reverse ARP"));
    for (const SwitchLine &line : server.sources)
        if (line.database == "bootparams")
            for (const std::string &source : line.sources)
                if (source != "files" && source != "nis" && source != "nisplus")
                    found.push_back(
                        {.severity = Severity::warning,
                         .stage = Stage::parameters,
                         .where = server.name_switch.path + ":" + std::to_string(line.line),
                         .what = base::tr("bootparams has the source {1}, which nobody can read", source),
                         .why = base::tr("hostadm cannot list this server's clients"),
                         .repair = "sed -i '" + std::to_string(line.line) + "s/:.*/: files/' " +
                                   server.name_switch.path});
    return found;
}

} // namespace hostadm::server
