// SPDX-License-Identifier: MIT
// What is shared now, what is to be shared at boot, and what the NFS server exports of it.
#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/adapters.hpp"
#include "server/checks/client_needs.hpp"
#include "server/checks/subjects.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr const char *table = "/etc/dfs/dfstab";

// The options of the share that holds a path: of the directory itself or of one above it.
struct Covering {
    std::string path, options;
};
template <typename Find> std::optional<Covering> covering(const std::string &path, Find find) {
    for (std::string above = path; above.size() > 1; above = fs::path(above).parent_path().string())
        if (const std::string *options = find(above))
            return Covering{above, *options};
    return std::nullopt;
}

std::optional<Covering> share_now(const Snapshot &server, const std::string &path) {
    return covering(path, [&](const std::string &above) -> const std::string * {
        const auto found = server.shares.find(above);
        return found == server.shares.end() ? nullptr : &found->second;
    });
}

std::optional<Covering> share_at_boot(const Snapshot &server, const std::string &path) {
    return covering(path, [&](const std::string &above) -> const std::string * {
        const auto found = server.boot_share_places.find(above);
        return found == server.boot_share_places.end() ? nullptr : &server.boot_shares[found->second].options;
    });
}

// The share as hostadm makes it for a client.
std::string options_for(const CheckedClient &client) {
    return "rw=" + client.name + ",root=" + client.name;
}

std::string directory_to_share(const CheckedClient &client, const Need &need) {
    return need.is_file ? share_path_of(need.path, client.name) : need.path;
}

std::string share_again(const Snapshot &server, const CheckedClient &client, const Need &need, bool replace) {
    const std::string path = directory_to_share(client, need);
    const auto at_boot = server.boot_share_places.find(path);
    std::string options = options_for(client);
    if (at_boot != server.boot_share_places.end() &&
        access_by_options(server.boot_shares[at_boot->second].options, client.caller).root)
        options = server.boot_shares[at_boot->second].options;
    return (replace ? "hostadm run filesystem/unshare pathname=" + path + " takeeffect=nowonly && "
                    : std::string()) +
           "hostadm run filesystem/share pathname=" + path + " options=" + options;
}

// What a client lacks of a directory that it mounts as its own root user; empty: nothing.
std::string lack(const Access &access) {
    if (!access.read)
        return base::tr("not to this client");
    if (!access.write)
        return base::tr("for reading only");
    return access.root ? "" : base::tr("without root access");
}

std::string consequence(const CheckedClient &client, const Need &need, const Access &access) {
    if (!access.read)
        return base::tr("{1} may not mount its {2}", client.name, need.key);
    if (!access.write)
        return base::tr("{1} cannot write to its {2}", client.name, need.key);
    return base::tr("{1} works as nobody there: its root user may not read and write its own files",
                    client.name);
}

} // namespace

Findings shares_of_server(const Snapshot &server) {
    Findings found;
    for (std::size_t place = 0; place < server.boot_shares.size(); ++place) {
        const BootShare &share = server.boot_shares[place];
        const std::string where = table + (":" + std::to_string(share.line));
        std::error_code error;
        if (!share.defect.empty()) {
            found.push_back({.severity = Severity::warning,
                             .stage = Stage::reboot,
                             .where = where,
                             .what = base::tr("the line is not understood: {1}", share.defect),
                             .why = base::tr("nothing is shared by it when this server boots"),
                             .repair = "sed -i '" + std::to_string(share.line) + "d' " + table});
        } else if (share.failed) {
            if (!server.boot_share_places.contains(share.path) && fs::exists(share.path, error))
                found.push_back(
                    {.severity = Severity::warning,
                     .stage = Stage::reboot,
                     .where = where,
                     .what = base::tr("{1} could not be shared once, and is a comment since", share.path),
                     .why = base::tr("it is not shared when this server boots"),
                     .repair =
                         "sed -i '" + std::to_string(share.line) + "s/^#//' " + table + " && shareall"});
        } else if (!fs::is_directory(share.path, error)) {
            found.push_back({.severity = Severity::warning,
                             .stage = Stage::reboot,
                             .where = where,
                             .what = base::tr("{1} is shared and no directory", share.path),
                             .why = base::tr("the share fails when this server boots"),
                             .repair = "hostadm run filesystem/unshare pathname=" + share.path});
        } else if (server.boot_share_places.at(share.path) != place &&
                   server.boot_shares[server.boot_share_places.at(share.path)].options != share.options) {
            found.push_back(
                {.severity = Severity::warning,
                 .stage = Stage::reboot,
                 .where = where,
                 .what = base::tr("{1} is shared again with other options in line {2}", share.path,
                                  server.boot_shares[server.boot_share_places.at(share.path)].line),
                 .why = base::tr("only the last line counts"),
                 .repair = "sed -i '" + std::to_string(share.line) + "d' " + table});
        }
    }
    if (!server.has_share_command && !server.boot_shares.empty())
        found.push_back({.stage = Stage::reboot,
                         .where = "/usr/sbin/share",
                         .what = base::tr("the share command is missing"),
                         .why = base::tr("nothing of {1} is shared when this server boots", table),
                         .repair = how_to_install_adapters()});
    return found;
}

Findings shares_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    for (const Need &need : needs_of(server, client)) {
        if (!need.exists)
            continue; // told by the check of the thing itself
        const auto now = share_now(server, need.path);
        const auto at_boot = share_at_boot(server, need.path);
        const Export *exported = export_of(server.exports, need.path);
        const std::string path = directory_to_share(client, need);
        const auto add = [&](Severity severity, Stage stage, const std::string &where,
                             const std::string &what, const std::string &why, const std::string &repair) {
            found.push_back({.severity = severity,
                             .stage = stage,
                             .client = client.name,
                             .where = where,
                             .what = what,
                             .why = why,
                             .repair = repair});
        };
        if (!now) {
            // What is exported past the shares, by the NFS server's own settings, is as good.
            if (exported == nullptr)
                add(Severity::error, need.stage, path,
                    base::tr("the {1} of {2} is not shared", need.key, client.name),
                    base::tr("{1} may not mount its {2}", client.name, need.key),
                    share_again(server, client, need, false));
            continue;
        }
        const Access access = access_by_options(now->options, client.caller);
        if (const std::string lacks = lack(access); !lacks.empty()) {
            add(Severity::error, need.stage, now->path,
                base::tr("the {1} of {2} is shared {3}, with {4}", need.key, client.name, lacks,
                         now->options),
                consequence(client, need, access),
                now->path == path ? share_again(server, client, need, true)
                                  : "hostadm run filesystem/unshare pathname=" + now->path + " && " +
                                        share_again(server, client, need, false));
            continue;
        }
        if (!at_boot) {
            add(Severity::warning, Stage::reboot, table,
                base::tr("{1} is shared now, and not when this server boots", now->path),
                base::tr("{1} may not mount its {2} after that", client.name, need.key),
                "hostadm run filesystem/share pathname=" + now->path +
                    " takeeffect=bootonly options=" + now->options);
            continue;
        }
        const Access later = access_by_options(at_boot->options, client.caller);
        if (const std::string lacks = lack(later); !lacks.empty())
            add(Severity::warning, Stage::reboot,
                table + (":" +
                         std::to_string(server.boot_shares[server.boot_share_places.at(at_boot->path)].line)),
                base::tr("{1} is shared {2} when this server boots, with {3}", at_boot->path, lacks,
                         at_boot->options),
                base::tr("{1} after that", consequence(client, need, later)),
                "hostadm run filesystem/share pathname=" + now->path +
                    " takeeffect=bootonly options=" + now->options);
    }
    return found;
}

Findings exports_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    if (server.nfs == NfsServer::none || !server.exports.defect.empty())
        return found;
    for (const Need &need : needs_of(server, client)) {
        if (!need.exists)
            continue;
        const auto now = share_now(server, need.path);
        if (now && !lack(access_by_options(now->options, client.caller)).empty())
            continue; // that is the cause
        const Export *exported = export_of(server.exports, need.path);
        if (exported == nullptr && !now)
            continue; // told as not shared
        Finding finding{.stage = need.stage, .client = client.name, .where = base::tr("NFS server")};
        finding.repair =
            now ? "hostadm run filesystem/unshare pathname=" + now->path +
                      " takeeffect=nowonly && hostadm run filesystem/share pathname=" + now->path +
                      " options=" + now->options
                : "hostadm run filesystem/share pathname=" + directory_to_share(client, need) +
                      " options=" + options_for(client);
        if (exported == nullptr) {
            finding.what = base::tr("{1} is shared, and the NFS server was not told to export it", now->path);
            finding.why = base::tr("{1} may not mount its {2}", client.name, need.key);
            found.push_back(finding);
            continue;
        }
        const Access access = access_by_export(*exported, client.caller);
        if (const std::string lacks = lack(access); !lacks.empty()) {
            finding.where = exported->file + ":" + std::to_string(exported->line);
            finding.what = now ? base::tr("the NFS server exports {1} {2}, other than it is shared",
                                          exported->path, lacks)
                               : base::tr("the NFS server exports {1} {2}", exported->path, lacks);
            finding.why = consequence(client, need, access);
            found.push_back(finding);
        }
    }
    return found;
}

} // namespace hostadm::server
