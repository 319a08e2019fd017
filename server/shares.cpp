// SPDX-License-Identifier: MIT
#include "server/shares.hpp"

#include <algorithm>
#include <unistd.h>

#include "base/text.hpp"
#include "hostadm.h"
#include "hostadm/table_edit.hpp"
#include "server/adapters.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"

namespace hostadm::server {

namespace {

// A parent that is shared with the same options is as good as a share of its own.
bool is_shared_now(const std::string &path, const std::string &options) {
    const auto shares = current_shares();
    for (std::string directory = path; directory.size() > 1; directory = parent_of(directory))
        if (const auto found = shares.find(directory); found != shares.end())
            return found->second == options;
    return false;
}

void check_options(const std::string &where, const std::string &there, const std::string &wanted) {
    if (there != wanted)
        fail(Code::taken, where + " already, with " + there + " and not " + wanted +
                              "; unshare it first (filesystem/unshare)");
}

} // namespace

std::unordered_map<std::string, std::string> current_shares() {
    std::unordered_map<std::string, std::string> shares;
    if (access("/usr/sbin/share", X_OK) != 0)
        return shares;
    free_sharefs_ents();
    get_sharefs_ents();
    for (const sharefs_entry *entry = sfs_top; entry != nullptr; entry = entry->next)
        shares.try_emplace(entry->path, entry->options);
    free_sharefs_ents();
    return shares;
}

std::vector<TableShare> table_shares(const std::string &table) {
    std::vector<TableShare> shares;
    std::string text;
    tables::read_file(table, text);
    base::for_each_line(text, [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() < 2 || (words.front() != "share" && words.front() != "#share"))
            return;
        TableShare share{std::string(words.back()), "", words.front() == "#share"};
        for (std::size_t i = 1; i + 2 < words.size(); ++i)
            if (words[i] == "-o")
                share.options = words[i + 1];
        shares.push_back(share);
    });
    return shares;
}

ShareState share_state(const std::string &path) {
    ShareState state;
    const auto shares = current_shares();
    if (const auto now = shares.find(path); now != shares.end()) {
        state.now = true;
        state.options_now = now->second;
    }
    for (const TableShare &line : table_shares()) {
        if (line.path != path || line.failed)
            continue;
        state.at_boot = true;
        state.options_at_boot = line.options;
    }
    return state;
}

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

bool ensure_share(const std::string &method, const std::string &path, const std::string &options,
                  Journal &journal) {
    const ShareState before = share_state(path);
    if (before.at_boot)
        check_options(path + " is in " + share_table, before.options_at_boot, options);
    if (before.now)
        check_options(path + " is shared", before.options_now, options);
    if (before.now && before.at_boot)
        return false;
    note_new_table(share_table, journal);
    if (!before.now && !before.at_boot)
        journal.note(MadeShare{path, options});
    if (sharefs(nullptr, options.c_str(), nullptr, path.c_str(), nullptr, method.c_str(), 0) != 0)
        throw Recorded();
    // The library takes silence for success, also that of a command that was killed.
    if (!is_shared_now(path, options))
        fail(Code::no_effect, path + " is not shared, although /usr/sbin/share did not complain");
    if (!share_state(path).at_boot)
        fail(Code::no_effect, path + " is not in " + share_table + ", although it was written there");
    return true;
}

void withdraw_share(const std::string &method, const std::string &path) {
    require_command("/usr/sbin/unshare", "withdraws shares");
    if (unsharefs(nullptr, path.c_str(), nullptr, nullptr, method.c_str()) != 0)
        fail(Code::general, "cannot withdraw the share of " + path);
    const ShareState after = share_state(path);
    if (after.now)
        fail(Code::no_effect, path + " is still shared, although /usr/sbin/unshare did not complain");
    if (after.at_boot)
        fail(Code::no_effect, path + " is still in " + share_table + ", although its line was removed");
}

std::string take_back(const MadeShare &made, const UndoContext &context) {
    const ShareState now = share_state(made.path);
    const bool ours =
        (now.now && now.options_now == made.options) || (now.at_boot && now.options_at_boot == made.options);
    if (!ours)
        return "";
    if (unsharefs(nullptr, made.path.c_str(), nullptr, nullptr, context.method.c_str()) != 0)
        return "the share of " + made.path;
    const ShareState after = share_state(made.path);
    return after.now || after.at_boot ? "the share of " + made.path + ", which is still there" : "";
}

} // namespace hostadm::server
