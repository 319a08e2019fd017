// SPDX-License-Identifier: MIT
#include <map>
#include <set>

#include "base/mounts.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "hostadm/table_edit.hpp"
#include "server/checks/registry.hpp"
#include "server/clients.hpp"
#include "server/daemons.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "host/status",
    .purpose = "what this server serves: clients, shares, mounts, daemons, each row with its section",
    .outputs = {{"findings", "how much is wrong here, as host/check tells in full"}},
    .columns = {{"section", "client, share, mount or daemon"},
                {"name", "client: host name; daemon: program"},
                {"kind", "client: diskless, dataless, cache-only, install, rpl, pc, diskfull or unknown"},
                {"address", "client: IPv4 address"},
                {"architecture", "client: implementation architecture"},
                {"root", "client: root directory, or what it mounts instead of one"},
                {"boot_links", "client: yes, no, or what is wrong with them"},
                {"shared", "client: is that shared now?"},
                {"disabled", "client: is it kept from booting (client/disable)?"},
                {"path", "share: what is shared"},
                {"options", "share, mount: options"},
                {"now", "share: is it shared now? mount: is it mounted now?"},
                {"at_boot", "share, mount: yes, no, or failed for a share that could not be made"},
                {"resource", "mount: what is mounted"},
                {"mount_point", "mount: where"},
                {"type", "mount: file system type"},
                {"service", "daemon: what it does for a client"},
                {"running", "daemon: does it run?"},
                {"pid", "daemon: its process"},
                {"note", "daemon: what is wrong, and what to do"}},
};

constexpr const char *yes_or_no(bool yes) {
    return yes ? "yes" : "no";
}

void clients(ManyRows &rows) {
    const auto shares = current_shares();
    for (const Client &client : all_clients())
        rows.add({{"section", "client"},
                  {"name", client.name},
                  {"kind", name_of(client.kind())},
                  {"address", client.address},
                  {"architecture", client.architecture()},
                  {"root", client.mounted()},
                  {"boot_links", client.boot_links()},
                  {"shared", yes_or_no(shares.count(client.mounted()) != 0)},
                  {"disabled", yes_or_no(client.disabled)}});
}

void shares(ManyRows &rows) {
    struct Share {
        std::string options;
        bool now = false;
        std::string at_boot = "no";
    };
    std::map<std::string, Share> all;
    for (const TableShare &share : table_shares())
        all[share.path] = {share.options, false, share.failed ? "failed" : "yes"};
    for (const auto &[path, options] : current_shares()) {
        all[path].options = options;
        all[path].now = true;
    }
    for (const auto &[path, share] : all)
        rows.add({{"section", "share"},
                  {"path", path},
                  {"options", share.options},
                  {"now", yes_or_no(share.now)},
                  {"at_boot", share.at_boot}});
}

std::set<std::string> mount_points_now() {
    std::set<std::string> points;
    for (base::Mount &mount : base::all_mounts())
        points.insert(std::move(mount.point));
    return points;
}

void mounts(ManyRows &rows) {
    std::string table;
    if (hostadm::tables::read_file("/etc/vfstab", table) != 0)
        return;
    const std::set<std::string> now = mount_points_now();
    base::for_each_line(table, [&](std::string_view line) {
        const auto words = base::words_of(line);
        constexpr std::size_t columns = 7;
        if (words.size() < columns || words.front().starts_with('#'))
            return;
        rows.add({{"section", "mount"},
                  {"resource", words[0]},
                  {"mount_point", words[2]},
                  {"type", words[3]},
                  {"options", words[6]},
                  {"now", yes_or_no(now.count(std::string(words[2])) != 0)},
                  {"at_boot", words[5]}});
    });
}

void daemons(ManyRows &rows) {
    for (const BootDaemon &daemon : boot_daemons()) {
        std::string note = daemon.note;
        if (!daemon.advice.empty())
            note += (note.empty() ? "" : "; ") +
                    (daemon.running ? daemon.advice : base::tr("start it: {1}", daemon.advice));
        rows.add({{"section", "daemon"},
                  {"service", daemon.service},
                  {"name", daemon.name},
                  {"running", yes_or_no(daemon.running)},
                  {"pid", daemon.pid == 0 ? "" : std::to_string(daemon.pid)},
                  {"note", note}});
    }
}

int work(Call &call) {
    call.set("findings", std::to_string(check(read_snapshot()).size()));
    ManyRows rows;
    clients(rows);
    shares(rows);
    mounts(rows);
    daemons(rows);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
