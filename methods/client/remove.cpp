// SPDX-License-Identifier: MIT
// Takes a client off this server. From the first step on it cannot boot any more; its bootparams entry goes
// last, because it alone tells a second run what a first one has left.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

#include "base/text.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/boot_links.hpp"
#include "server/client_entry.hpp"
#include "server/client_lock.hpp"
#include "server/clients.hpp"
#include "server/host_tables.hpp"
#include "server/local_host.hpp"
#include "server/roots.hpp"
#include "server/undo.hpp"

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
    .outputs = {{"pathname", "the share that was withdrawn last"}},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or kept"},
                {"detail", "what is gone, or why it stays"}},
};

struct Result {
    std::string result, detail;
};

struct Step {
    std::string name;
    std::string what; // for somebody who has to do it by hand
    std::function<Result()> work;
};

struct Client {
    std::string hostname, items, address, ethernet, root, swap, dump;
    std::set<std::string> shared; // paths
};

[[noreturn]] void fail(const std::string &text) {
    throw std::runtime_error(text);
}

// The path of an item, if it is on this server.
std::string own_path(const std::string &items, const char *key) {
    const std::string item = item_of(items, key), path = path_of_item(items, key);
    const bool own = !path.empty() && path.front() == '/' && is_this_host(item.substr(0, item.find(':')));
    return own ? real_path_of(path) : "";
}

// Shares with the options that a client gets when it is added, wherever they lie.
std::set<std::string> shares_of(const std::string &client) {
    const std::string options = "rw=" + client + ",root=" + client;
    std::set<std::string> paths;
    for (const auto &[path, now] : current_shares())
        if (now == options)
            paths.insert(path);
    for (const TableShare &share : table_shares())
        if (share.options == options && !share.failed)
            paths.insert(share.path);
    return paths;
}

Client find_client(const std::string &hostname) {
    Client client;
    client.hostname = client_name_as_written(hostname);
    client.items = client_items(client.hostname);
    if (base::lower_case(hostname) == base::lower_case(local_host_name()) ||
        base::lower_case(hostname) == "localhost")
        fail(hostname + " is this server");
    client.address = hosts_table().key_of(hostname);
    client.ethernet = ethers_table().key_of(hostname);
    client.root = own_path(client.items, "root");
    client.swap = own_path(client.items, "swap");
    client.dump = own_path(client.items, "dump");
    client.shared = shares_of(client.hostname);
    for (const std::string &path : {client.root, client.swap, client.dump})
        if (!path.empty())
            client.shared.insert(path == client.root ? path : share_path_of(path, client.hostname));
    return client;
}

// Hosts that share options name, such as rw=a:b,root=a.
bool names_others(const std::string &options, const std::string &client) {
    for (std::size_t begin = 0; begin < options.size();) {
        const std::size_t end = std::min(options.find(',', begin), options.size());
        const std::string word = options.substr(begin, end - begin);
        begin = end + 1;
        if (!word.starts_with("rw=") && !word.starts_with("ro=") && !word.starts_with("root="))
            continue;
        const std::string hosts = word.substr(word.find('=') + 1);
        if (base::lower_case(hosts) != base::lower_case(client))
            return true;
    }
    return false;
}

Result remove_links(Call &call, const Client &client) {
    if (client.address.empty() || boot_links_of(client.address).empty())
        return {"unchanged", "none"};
    std::string names;
    for (const BootLink &link : boot_links_of(client.address))
        names += (names.empty() ? "" : ", ") + link.name;
    const SilencedErrors silence;
    cleanup_tftpboot_dir(call.method().c_str(), client.address.c_str());
    if (!boot_links_of(client.address).empty())
        fail("cannot remove the links of " + client.address + " from " + tftpboot);
    return {"done", names};
}

Result unshare(Call &call, const Client &client, const std::string &path) {
    std::string options;
    bool shared = false;
    const auto shares = current_shares();
    if (const auto now = shares.find(path); now != shares.end()) {
        shared = true;
        options = now->second;
    }
    for (const TableShare &share : table_shares()) {
        if (share.path != path || share.failed)
            continue;
        shared = true;
        if (options.empty() || names_others(share.options, client.hostname))
            options = share.options;
    }
    if (!shared)
        return {"unchanged", path};
    if (names_others(options, client.hostname))
        return {"kept", path + " is shared with others too, with " + options};
    if (access("/usr/sbin/unshare", X_OK) != 0)
        fail("/usr/sbin/unshare, which withdraws shares, is missing");
    if (unsharefs(nullptr, path.c_str(), nullptr, nullptr, call.method().c_str()) != 0)
        fail("cannot withdraw the share of " + path);
    return {"done", path};
}

// The file, and the folder that was made for it alone.
Result remove_file(const Client &client, const std::string &path) {
    std::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(path, error)))
        return {"unchanged", path};
    if (unlink(path.c_str()) != 0)
        fail("cannot remove " + path + ": " + std::strerror(errno));
    if (const fs::path folder = fs::path(path).parent_path(); folder.filename() == client.hostname)
        rmdir(folder.c_str());
    return {"done", path};
}

void check_root_is_its_own(const Client &client) {
    RealPaths real_paths;
    for (const BootparamsClient &other : client_entries()) {
        const std::string theirs = real_paths.of(path_of_item(other.items, "root"));
        if (other.name == client.hostname || theirs.empty())
            continue;
        if (is_at_or_below(theirs, client.root) || is_at_or_below(client.root, theirs))
            fail("the root " + client.root + " and that of " + other.name + ", " + theirs +
                 ", lie in one another; neither is removed");
    }
}

Result remove_root(const Client &client) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(client.root, error)))
        return {"unchanged", client.root};
    check_root_is_its_own(client);
    remove_tree(client.root);
    return {"done", client.root};
}

Result remove_line(const HostTable &table, const std::string &key, const std::string &name) {
    if (key.empty())
        return {"unchanged", "none"};
    if (table.remove(name))
        return {"done", key};
    return {"kept", key + " in " + table.path() + ": " + name + " is only another name of that host"};
}

std::vector<Step> plan(Call &call, const Client &client) {
    const std::string &name = client.hostname;
    const bool purge = call.get("purge") == "yes";
    std::vector<Step> steps;
    steps.push_back({"boot links", "the links of " + name + " in " + tftpboot,
                     [&] { return remove_links(call, client); }});
    steps.push_back({"ethers", "the line of " + name + " in /etc/ethers",
                     [&] { return remove_line(ethers_table(), client.ethernet, name); }});
    for (const std::string &path : client.shared)
        steps.push_back({"share", "the share of " + path,
                         [&call, &client, path] { return unshare(call, client, path); }});
    if (!client.dump.empty() && purge)
        steps.push_back({"dump", client.dump, [&] { return remove_file(client, client.dump); }});
    if (!client.swap.empty())
        steps.push_back({"swap", client.swap, [&] { return remove_file(client, client.swap); }});
    if (!client.root.empty() && purge)
        steps.push_back({"root", client.root, [&] {
                             call.progress("removing " + client.root);
                             return remove_root(client);
                         }});
    steps.push_back({"hosts", "the line of " + name + " in /etc/hosts",
                     [&] { return remove_line(hosts_table(), client.address, name); }});
    steps.push_back(
        {"bootparams", "the entry of " + name + " in /etc/bootparams", [&] {
             return remove_client_entry(name) ? Result{"done", client.items} : Result{"unchanged", "none"};
         }});
    return steps;
}

void say_what_stays(Call &call, const Client &client) {
    for (const auto &[step, path] :
         {std::pair("dump", client.dump), {"swap", client.swap}, {"root", client.root}})
        if (const std::string item = item_of(client.items, step); path.empty() && !item.empty())
            call.row({{"step", step}, {"result", "kept"}, {"detail", item + " is not on this server"}});
    if (call.get("purge") == "yes")
        return;
    for (const auto &[step, path] : {std::pair("dump", client.dump), std::pair("root", client.root)})
        if (std::error_code error; !path.empty() && fs::exists(path, error))
            call.row({{"step", step},
                      {"result", "kept"},
                      {"detail", path + " stays without purge=yes; from now on it is removed by hand"}});
}

int remove(Call &call, Journal &journal) {
    if (geteuid() != 0)
        fail("only root may remove a client");
    const ClientLock lock(call.get("hostname"));
    const Client client = find_client(call.get("hostname"));
    // A line in the hosts table alone makes nobody a client.
    if (client.items.empty() && client.ethernet.empty() && client.shared.empty()) {
        call.row({{"step", "client"},
                  {"result", "unchanged"},
                  {"detail", "there is no client " + client.hostname}});
        return 0;
    }
    if (call.get("purge") == "yes" && !client.root.empty())
        check_root_is_its_own(client);
    const std::vector<Step> steps = plan(call, client);
    for (const Step &step : steps)
        journal.note({"planned", step.what});
    for (const Step &step : steps) {
        call.progress("removing " + step.what);
        const Result result = step.work();
        call.row({{"step", step.name}, {"result", result.result}, {"detail", result.detail}});
        journal.note({"done", step.what});
    }
    say_what_stays(call, client);
    return 0;
}

void say_what_is_left(Call &call, const Journal &journal) {
    const auto entries = journal.entries();
    std::size_t done = 0;
    for (const auto &entry : entries)
        done += entry.front() == "done";
    for (const auto &entry : entries)
        if (entry.front() == "planned" && (done == 0 || done-- == 0))
            call.left_undone("still there: " + entry.at(1));
}

int work(Call &call) {
    Journal journal;
    const Ending ending = run_apart([&] {
        try {
            return remove(call, journal);
        } catch (const std::exception &failure) {
            return call.fail(failure.what());
        }
    });
    if (ending.done)
        return 0;
    if (!ending.reason.empty())
        call.fail(ending.reason);
    say_what_is_left(call, journal);
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
