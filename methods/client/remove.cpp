// SPDX-License-Identifier: MIT
// Takes a client off this server. From the first step on it cannot boot any more; its bootparams entry goes
// last, because it alone tells a second run what a first one has left.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/beneath.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/bootparams.hpp"
#include "server/claims.hpp"
#include "server/client_root.hpp"
#include "server/clients.hpp"
#include "server/common_shares.hpp"
#include "server/dhcp_server.hpp"
#include "server/disabling.hpp"
#include "server/filling.hpp"
#include "server/host_tables.hpp"
#include "server/page.hpp"
#include "server/pc_client.hpp"
#include "server/report.hpp"
#include "server/roots.hpp"
#include "server/rpl_area.hpp"
#include "server/shares.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;
namespace fs = std::filesystem;

const Description description{
    .name = "client/remove",
    .purpose =
        "take a client off this server: links, tables, shares, swap; its root and dump only with purge=yes",
    .arguments = {{"hostname", Kind::host, "the client's name", true},
                  {"purge", Kind::yes_no, "remove its root and its dump file too", false, "no"}},
    .outputs = {{"pathname", "the share that was withdrawn last"}, changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or kept"},
                {"detail", "what is gone, or why it stays"}},
    .edits = {"/export", "/tftpboot", "/rplboot", "/etc/bootparams", "/etc/hosts", "/etc/ethers",
              "/etc/dfs/dfstab"},
    .shares = {"the client's root"},
    .values = client_values,
};

struct Result {
    enum { done, unchanged, kept } result;
    std::string detail;
};

struct Step {
    std::string name;
    std::string what; // for somebody who has to do it by hand
    std::function<Result()> work;
};

// What of a client is on this server, in one spelling.
struct Leaving {
    Client client;
    std::string root, swap, dump;
    bool is_filled = true;        // or a run that was cut off has left the root
    std::set<std::string> shared; // paths
    std::set<std::string> common; // those that it was installed from, with others perhaps
};

// The steps, as the journal has them.
struct Planned {
    static constexpr std::string_view kind = "planned";
    std::string what;
    static auto fields(auto &self) { return std::tie(self.what); }
};
struct Finished {
    static constexpr std::string_view kind = "finished";
    std::string what;
    static auto fields(auto &self) { return std::tie(self.what); }
};

// Shares with the options that a client gets when it is added, wherever they lie.
std::set<std::string> shares_of(const Client &client) {
    std::set<std::string> paths;
    for (const auto &[path, options] : current_shares())
        if (options == share_options_of(client.name))
            paths.insert(path);
    for (const TableShare &share : table_shares())
        if (share.options == share_options_of(client.name) && !share.failed)
            paths.insert(share.path);
    return paths;
}

// Directories of this server that only this client is told to install or to run from, and that were shared for such
// clients.
std::set<std::string> common_shares_of(const Client &client) {
    std::set<std::string> paths;
    for (const char *key : {"install", "install_config", "exec"})
        if (const std::string path = client.own_path(key); !path.empty() && is_common_share(path))
            paths.insert(path);
    for (const BootparamsClient &other : client_entries())
        if (base::lower_case(other.name) != base::lower_case(client.name))
            for (const char *key : {"install", "install_config", "exec"})
                paths.erase(path_of_item(other.items, key));
    return paths;
}

Leaving find_leaving(const std::string &hostname) {
    if (is_server_itself(hostname))
        fail(Code::taken, base::tr("{1} is this server", hostname));
    Leaving leaving;
    leaving.client = find_client(hostname);
    // The root of a client that is being installed is that of all who are installed from there.
    if (leaving.client.kind() != ClientKind::install)
        leaving.root = leaving.client.own_path("root");
    leaving.swap = leaving.client.own_path("swap");
    leaving.dump = leaving.client.own_path("dump");
    for (const Filling &filling : roots_being_filled()) {
        if (base::lower_case(filling.client) != base::lower_case(hostname))
            continue;
        leaving.is_filled = false;
        if (leaving.root.empty())
            leaving.root = filling.root;
    }
    leaving.shared = shares_of(leaving.client);
    leaving.common = common_shares_of(leaving.client);
    if (!leaving.root.empty() && leaving.root == leaving.client.own_path("root"))
        leaving.shared.insert(leaving.root);
    for (const std::string &path : {leaving.swap, leaving.dump})
        if (!path.empty())
            leaving.shared.insert(share_path_of(path, leaving.client.name));
    return leaving;
}

std::vector<Claim> claims_on(const Leaving &leaving) {
    std::vector<Claim> claims;
    for (const std::string &path : {leaving.root, leaving.swap, leaving.dump})
        if (!path.empty())
            claims.push_back({Claim::Kind::path, path});
    if (!leaving.client.address.empty())
        claims.push_back({Claim::Kind::address, leaving.client.address});
    if (!leaving.client.ethernet.empty())
        claims.push_back({Claim::Kind::ethernet, leaving.client.ethernet});
    return claims;
}

Result remove_links(Call &call, const Client &client, Journal &journal) {
    if (client.links.empty())
        return {Result::unchanged, "none"};
    if (client.kind() == ClientKind::pc) {
        const BootAreaLock lock;
        remove_pc_menu(lock, client.address, journal);
        return {Result::done, names_of(client.links)};
    }
    if (client.kind() == ClientKind::rpl) {
        const RplAreaLock lock;
        return {Result::done, names_of(remove_rpl_links(lock, call.method(), rpl_key(client.ethernet)))};
    }
    const BootAreaLock lock;
    return {Result::done, names_of(remove_boot_links(lock, call.method(), client.address))};
}

Result unshare(Call &call, const Client &client, const std::string &path) {
    const ShareState share = share_state(path);
    if (!share.now && !share.at_boot)
        return {Result::unchanged, path};
    for (const std::string &options : {share.options_now, share.options_at_boot})
        if (names_others(options, client.name))
            return {Result::kept, base::tr("{1} is shared with others too, with {2}", path, options)};
    withdraw_share(call.method(), path);
    return {Result::done, path};
}

// The file, and the folder that was made for it alone.
Result remove_file(const Client &client, const std::string &path) {
    std::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(path, error)))
        return {Result::unchanged, path};
    const base::Beneath folder = folder_on_server(path); // it may lie in the client's root
    folder.remove(fs::path(path).filename().native());
    if (const fs::path above = parent_of(path); above.filename() == client.name && folder.names().empty())
        folder_on_server(above).remove(above.filename().native());
    return {Result::done, path};
}

Result remove_root(const Leaving &leaving) {
    const bool there = exists(leaving.root);
    if (there) {
        check_root_is_its_own(leaving.client, leaving.root);
        remove_tree(leaving.root);
    }
    if (!leaving.is_filled)
        end_filling(leaving.root);
    return {there ? Result::done : Result::unchanged, leaving.root};
}

Result remove_line(const HostTable &table, const std::string &key, const std::string &name) {
    if (key.empty())
        return {Result::unchanged, "none"};
    if (table.key_of(name).empty()) // it stands behind the mark of a disabled client
        return forget_disabled(name) ? Result{Result::done, key} : Result{Result::unchanged, "none"};
    if (table.remove(name))
        return {Result::done, key};
    return {Result::kept,
            base::tr("{1} in {2}: {3} is only another name of that host", key, table.path(), name)};
}

// While its entry is there, the next run finds what a power cut has brought back.
void flush(const Leaving &leaving) {
    std::vector<std::string> places = {tftpboot};
    for (const std::string &path : {leaving.root, leaving.swap, leaving.dump})
        if (!path.empty())
            places.push_back(path);
    flush_file_systems(places);
}

std::vector<Step> plan(Call &call, const Leaving &leaving, Journal &journal) {
    const Client &client = leaving.client;
    const std::string &name = client.name;
    const bool purge = call.get("purge") == "yes";
    std::vector<Step> steps;
    steps.push_back(
        {base::tr("boot links"),
         base::tr("the links of {1} in {2}", name, (client.kind() == ClientKind::rpl ? rplboot : tftpboot)),
         [&] { return remove_links(call, client, journal); }});
    steps.push_back({"ethers", base::tr("the line of {1} in /etc/ethers", name),
                     [&] { return remove_line(ethers_table(), client.ethernet, name); }});
    for (const std::string &path : leaving.shared)
        steps.push_back({"share", base::tr("the share of {1}", path),
                         [&call, &client, path] { return unshare(call, client, path); }});
    for (const std::string &path : leaving.common)
        steps.push_back({"share", base::tr("the share of {1}", path), [&call, path] {
                             withdraw_common_share(call.method(), path);
                             return Result{Result::done, path};
                         }});
    if (!leaving.dump.empty() && purge)
        steps.push_back({"dump", leaving.dump, [&] { return remove_file(client, leaving.dump); }});
    if (!leaving.swap.empty())
        steps.push_back({"swap", leaving.swap, [&] { return remove_file(client, leaving.swap); }});
    if (!leaving.root.empty() && purge)
        steps.push_back({"root", leaving.root, [&] {
                             call.progress(base::tr("removing {1}", leaving.root));
                             return remove_root(leaving);
                         }});
    steps.push_back({"hosts", base::tr("the line of {1} in /etc/hosts", name), [&] {
                         flush(leaving);
                         return remove_line(hosts_table(), client.address, name);
                     }});
    steps.push_back({"bootparams", base::tr("the entry of {1} in /etc/bootparams", name), [&] {
                         return remove_client_entry(name) ? Result{Result::done, client.items}
                                                          : Result{Result::unchanged, "none"};
                     }});
    return steps;
}

void say_what_stays(Call &call, const Leaving &leaving, Report &report) {
    for (const auto &[step, path] :
         {std::pair("dump", leaving.dump), {"swap", leaving.swap}, {"root", leaving.root}})
        if (const std::string item = leaving.client.item(step); path.empty() && !item.empty())
            report.kept(step, leaving.client.own_path(step).empty()
                                  ? base::tr("{1} is not on this server", item)
                                  : base::tr("{1} is what it was installed from", item));
    if (call.get("purge") == "yes")
        return;
    if (!leaving.is_filled)
        report.kept("root", base::tr("{1} was left by a run that was cut off, and stays without purge=yes",
                                     leaving.root));
    else if (exists(leaving.root))
        report.kept("root",
                    base::tr("{1} stays without purge=yes; from now on it is removed by hand", leaving.root));
    if (exists(leaving.dump))
        report.kept("dump",
                    base::tr("{1} stays without purge=yes; from now on it is removed by hand", leaving.dump));
}

void take(Report &report, const std::string &step, const Result &result) {
    if (result.result == Result::kept)
        report.kept(step, result.detail);
    else
        report.step(step, result.result == Result::done, result.detail);
}

int remove(Call &call, Claims &claims, Journal &journal) {
    const Leaving leaving = find_leaving(call.get("hostname"));
    const Client &client = leaving.client;
    claims.add(claims_on(leaving));
    Report report;
    // A line in the hosts table alone makes nobody a client.
    if (client.items.empty() && client.ethernet.empty() && leaving.shared.empty() && leaving.is_filled) {
        report.step("client", false, base::tr("there is no client {1}", client.name));
        report.tell(call);
        return 0;
    }
    if (call.get("purge") == "yes" && !leaving.root.empty())
        check_root_is_its_own(client, leaving.root);
    const std::vector<Step> steps = plan(call, leaving, journal);
    for (const Step &step : steps)
        journal.note(Planned{step.what});
    for (const Step &step : steps) {
        call.progress(base::tr("removing {1}", step.what));
        take(report, step.name, step.work());
        journal.note(Finished{step.what});
    }
    if (client.kind() == ClientKind::pc)
        tell_dhcp_server(report);
    say_what_stays(call, leaving, report);
    report.tell(call);
    return 0;
}

void say_what_is_left(Call &call, const Journal &journal) {
    std::multiset<std::string> finished;
    for (const Written &entry : journal.entries())
        if (const auto step = read_entry<Finished>(entry))
            finished.insert(step->what);
    for (const Written &entry : journal.entries())
        if (const auto step = read_entry<Planned>(entry)) {
            if (const auto done = finished.find(step->what); done != finished.end())
                finished.erase(done);
            else
                call.left_undone(base::tr("still there: {1}", step->what));
        }
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may remove a client"));
    Claims claims(call.method(), call.get("hostname"), {{Claim::Kind::name, call.get("hostname")}});
    Transaction transaction(call, call.get("hostname"));
    if (transaction.run([&] { return remove(call, claims, transaction.journal()); }))
        return 0;
    say_what_is_left(call, transaction.journal());
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
