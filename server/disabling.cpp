// SPDX-License-Identifier: MIT
#include "server/disabling.hpp"

#include <algorithm>
#include <set>
#include <vector>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
#include "server/line_edits.hpp"
#include "server/nfs_server.hpp"
#include "server/roots.hpp"
#include "server/shares.hpp"

namespace hostadm::server {

namespace {

bool same_name(std::string_view one, std::string_view other) {
    return base::lower_case(one) == base::lower_case(other);
}

// A line "KEY NAME" of the table of Ethernet addresses that is this client's.
bool is_line_of(std::string_view line, std::string_view client) {
    const auto words = base::words_of(line.substr(0, line.find('#')));
    return words.size() > 1 && same_name(words[1], client);
}

// The path and the options of a line of the table of shares; an empty path: it is no such line.
TableShare share_of_line(std::string_view line) {
    const auto words = base::words_of(line);
    TableShare share;
    if (words.size() < 2 || words.front() != "share")
        return share;
    share.path = words.back();
    for (std::size_t i = 1; i + 2 < words.size(); ++i)
        if (words[i] == "-o")
            share.options = words[i + 1];
    return share;
}

// The shares that are the client's alone.
bool is_share_of(const TableShare &share, const Client &client, const std::set<std::string> &paths) {
    return !share.path.empty() &&
           (share.options == share_options_of(client.name) || paths.contains(share.path)) &&
           !names_others(share.options, client.name);
}

std::set<std::string> paths_of(const Client &client) {
    std::set<std::string> paths;
    if (client.kind() == ClientKind::install) // its root is that of all who are installed from there
        return paths;
    for (const char *key : {"root", "swap", "dump"})
        if (const std::string path = client.own_path(key); !path.empty())
            paths.insert(path == client.own_path("root") ? path : share_path_of(path, client.name));
    return paths;
}

std::string table_text(const std::string &table) {
    std::string text;
    if (const int status = tables::read_file(table, text); status != 0 && status != tables::no_such_line)
        fail_reading(table, status);
    return text;
}

// The marked lines of a table, without their marks.
std::vector<std::string> disabled_lines(const std::string &table) {
    std::vector<std::string> lines;
    base::for_each_line(table_text(table), [&](std::string_view line) {
        if (const auto behind = disabled_line(line))
            lines.emplace_back(*behind);
    });
    return lines;
}

constexpr const char *now_only = "nowonly";

std::string withdraw_now(const std::string &method, const std::string &path) {
    if (unsharefs(nullptr, path.c_str(), nullptr, now_only, method.c_str()) != 0 || share_state(path).now)
        return base::tr("the share of {1}, which is still there", path);
    return "";
}

std::string share_now(const std::string &method, const std::string &path, const std::string &options) {
    ensure_nfs_server();
    if (sharefs(nullptr, options.c_str(), nullptr, path.c_str(), now_only, method.c_str(), 0) != 0 ||
        !share_state(path).now)
        return base::tr("{1}, which is not shared", path);
    return "";
}

} // namespace

std::unordered_map<std::string, std::string> disabled_ethernets() {
    std::unordered_map<std::string, std::string> ethernets;
    for (const std::string &line : disabled_lines(ethers_table().path()))
        if (const auto words = base::words_of(line); words.size() > 1)
            ethernets.try_emplace(base::lower_case(words[1]), words[0]);
    return ethernets;
}

std::string disabled_ethernet_of(const std::string &name) {
    const auto all = disabled_ethernets();
    const auto found = all.find(base::lower_case(name));
    return found == all.end() ? "" : found->second;
}

std::string disabled_name_of(const std::string &table, const std::string &key) {
    const HostTable same_key = table == ethers_table().path() ? ethers_table() : hosts_table();
    for (const std::string &line : disabled_lines(table))
        if (const auto words = base::words_of(line); words.size() > 1 && same_key.is_same_key(words[0], key))
            return std::string(words[1]);
    return "";
}

std::string take_back(const WithdrawnShare &withdrawn, const UndoContext &context) {
    return share_state(withdrawn.path).now ? ""
                                           : share_now(context.method, withdrawn.path, withdrawn.options);
}

std::string take_back(const ResumedShare &resumed, const UndoContext &context) {
    return share_state(resumed.path).now ? withdraw_now(context.method, resumed.path) : "";
}

void disable_client(const std::string &method, const Client &client, Journal &journal, Report &report) {
    const auto marked = [](std::string_view line) { return std::string(disabled_mark).append(line); };
    report.step("ethers",
                change_lines(
                    ethers_table().path(),
                    [&](std::string_view line) -> std::optional<std::string> {
                        if (!is_line_of(line, client.name))
                            return std::nullopt;
                        return marked(line);
                    },
                    journal),
                client.ethernet + " " + client.name);
    const std::set<std::string> paths = paths_of(client);
    const bool unlisted = change_lines(
        share_table,
        [&](std::string_view line) -> std::optional<std::string> {
            if (!is_share_of(share_of_line(line), client, paths))
                return std::nullopt;
            return marked(line);
        },
        journal);
    report.step("shares at boot", unlisted, share_table);
    for (const auto &[path, options] : current_shares()) {
        if (!is_share_of({path, options}, client, paths))
            continue;
        journal.note(WithdrawnShare{path, options});
        if (const std::string left = withdraw_now(method, path); !left.empty())
            fail(Code::no_effect, base::tr("cannot withdraw {1}", left));
        report.step("share", true, path);
    }
}

void enable_client(const std::string &method, const Client &client, Journal &journal, Report &report) {
    const std::set<std::string> paths = paths_of(client);
    report.step("ethers",
                change_lines(
                    ethers_table().path(),
                    [&](std::string_view line) -> std::optional<std::string> {
                        const auto behind = disabled_line(line);
                        if (!behind || !is_line_of(*behind, client.name))
                            return std::nullopt;
                        return std::string(*behind);
                    },
                    journal),
                client.ethernet + " " + client.name);
    std::vector<TableShare> wanted;
    const bool listed = change_lines(
        share_table,
        [&](std::string_view line) -> std::optional<std::string> {
            const auto behind = disabled_line(line);
            if (!behind || !is_share_of(share_of_line(*behind), client, paths))
                return std::nullopt;
            return std::string(*behind);
        },
        journal);
    report.step("shares at boot", listed, share_table);
    for (const TableShare &share : table_shares()) {
        if (share.failed || !is_share_of(share, client, paths) || share_state(share.path).now)
            continue;
        journal.note(ResumedShare{share.path});
        if (const std::string left = share_now(method, share.path, share.options); !left.empty())
            fail(Code::no_effect, base::tr("cannot share {1}", left));
        report.step("share", true, share.path + " " + share.options);
    }
}

bool forget_disabled(const std::string &name) {
    const Client client = find_client(name);
    const std::set<std::string> paths = paths_of(client);
    bool forgotten = false;
    for (const std::string &table : {ethers_table().path(), std::string(share_table)}) {
        const int status = tables::edit_file(table, [&](std::string &text) {
            std::string rest;
            std::string_view whole = text;
            while (!whole.empty()) {
                const std::string_view line =
                    whole.substr(0, std::min(whole.find('\n'), whole.size() - 1) + 1);
                const auto behind = disabled_line(base::trimmed_end(line.substr(0, line.find('\n'))));
                const bool ours = behind && (is_line_of(*behind, client.name) ||
                                             is_share_of(share_of_line(*behind), client, paths));
                if (!ours)
                    rest += line;
                whole.remove_prefix(line.size());
            }
            forgotten = forgotten || rest.size() != text.size();
            if (rest.size() != text.size())
                text = std::move(rest);
            return 0;
        });
        if (status != 0 && status != tables::no_such_line)
            fail_edit(table, status);
    }
    return forgotten;
}

} // namespace hostadm::server
