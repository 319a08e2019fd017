// SPDX-License-Identifier: MIT
// Clients that load their boot program by remote program load: the daemon, and their three links in /rplboot.
#include <algorithm>
#include <filesystem>
#include <system_error>

#include "base/translation.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"
#include "server/rpl_area.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr const char *start = "hostadm run host/start_daemon path=/usr/sbin/rpld";

} // namespace

Findings rpl_of_server(const Snapshot &server) {
    const auto client = std::find_if(server.clients.begin(), server.clients.end(),
                                     [](const auto &one) { return one.kind == ClientKind::rpl; });
    if (client == server.clients.end())
        return {};
    const Wanted wanted{
        .found = server.daemons.named({"rpld"}),
        .name = "rpld",
        .programs = {"/usr/sbin/rpld"},
        .package = {},
        .stage = Stage::boot_program,
        .why =
            base::tr("no client that asks for its boot program by RPL gets it, among them {1}", client->name),
        .start = start};
    if (auto defect = defect_of_daemon(wanted))
        return {*defect};
    return {};
}

Findings rpl_of_client(const Snapshot &server, const CheckedClient &client) {
    if (client.kind != ClientKind::rpl || client.ethernet.empty())
        return {};
    const std::string area = server.rpl_area, key = rpl_key(client.ethernet);
    Findings found;
    const auto add = [&](const std::string &where, const std::string &what, const std::string &repair) {
        found.push_back({.stage = Stage::boot_program,
                         .client = client.name,
                         .where = where,
                         .what = what,
                         .why = base::tr("{1} does not load its boot program by RPL", client.name),
                         .repair = repair});
    };
    std::error_code error;
    if (!fs::is_directory(area, error)) {
        add(area, base::tr("the directory is missing"), "mkdir " + area);
        return found;
    }
    for (const auto &[suffix, usual] :
         {std::pair(".hw.com", "smc.com"), {".glue.com", "gluecode.com"}, {".inetboot", "BOOT-PROGRAM"}}) {
        const std::string link = area + "/" + key + suffix;
        const std::string again = "ln -sfn " + std::string(usual) + " " + link;
        if (!fs::is_symlink(link, error) && !fs::exists(link, error)) {
            add(link, base::tr("the link is missing"), again);
            continue;
        }
        const fs::path target = fs::read_symlink(link, error);
        if (target.is_absolute() || target.string().starts_with(".."))
            add(link,
                base::tr("the link leads to {1}, out of the directory that rpld serves", target.string()),
                again);
        else if (!fs::exists(link, error))
            add(link, base::tr("the link leads to {1}, which is not there", target.string()), again);
        else if (!fs::is_regular_file(link, error))
            add(link, base::tr("it is no plain file"), again);
        else if (fs::file_size(link, error) == 0)
            add(link, base::tr("the program is empty"), "cp PROGRAM " + area + "/" + target.string());
    }
    return found;
}

} // namespace hostadm::server
