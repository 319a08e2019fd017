// SPDX-License-Identifier: MIT
#include "server/shares.hpp"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/table_edit.hpp"
#include "server/adapters.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/nfs_server.hpp"
#include "server/watched_commands.hpp"

namespace hostadm::server {

namespace {

// What stands behind "-d", up to the path, without its quotes.
std::string description_in(std::string_view line) {
    const std::size_t begin = line.find(" -d ");
    if (begin == line.npos)
        return "";
    const std::string_view rest = base::trimmed(line.substr(begin + 4));
    const std::string_view word = base::trimmed(rest.substr(0, rest.find_last_of(" \t")));
    if (word.size() < 2 || word.front() != word.back() || (word.front() != '"' && word.front() != '\''))
        return std::string(word);
    std::string text;
    for (std::size_t at = 1; at + 1 < word.size(); ++at) {
        if (word.front() == '"' && word[at] == '\\' && at + 2 < word.size())
            ++at;
        text += word[at];
    }
    return text;
}

// A parent that is shared with the same options is as good as a share of its own.
bool is_shared_now(const std::string &path, const std::string &options) {
    const auto shares = current_shares();
    for (std::string directory = path; directory.size() > 1; directory = parent_of(directory))
        if (const auto found = shares.find(directory); found != shares.end())
            return found->second == options;
    return false;
}

bool is_in_share_table(const std::string &path) {
    const std::vector<TableShare> lines = table_shares();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const TableShare &line) { return line.path == path && !line.failed; });
}

void check_options(const std::string &where, const std::string &there, const std::string &wanted) {
    if (there != wanted)
        fail(Code::taken, base::tr("{1} already, with {2} and not {3}; unshare it first (filesystem/unshare)",
                                   where, there, wanted));
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

std::string read_share_table(const std::string &table) {
    std::string text;
    tables::read_file(table, text); // one that cannot be read is told by its edit
    return text;
}

std::string as_one_word(const std::string &text) {
    constexpr char plain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./:@%+,=-";
    if (text.find_first_not_of(plain) == text.npos)
        return text;
    if (text.find('\'') == text.npos)
        return "'" + text + "'";
    std::string word = "\"";
    for (const char character : text) {
        if (std::string_view("\"\\$`").find(character) != std::string_view::npos)
            word += '\\';
        word += character;
    }
    return word + "\"";
}

std::string resolved_share_path(const std::string &path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    return error ? path : real.string();
}

std::vector<TableShare> table_shares(const std::string &table) {
    std::vector<TableShare> shares;
    base::for_each_line(read_share_table(table), [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() < 2 || (words.front() != "share" && words.front() != "#share"))
            return;
        TableShare share{std::string(words.back()), "", words.front() == "#share", description_in(line)};
        for (std::size_t i = 1; i + 2 < words.size(); ++i)
            if (words[i] == "-o")
                share.options = words[i + 1];
        shares.push_back(share);
    });
    return shares;
}

bool is_in_share_list(const std::string &path, const std::string &options) {
    bool found = false;
    base::for_each_line(base::file_contents("/etc/dfs/sharetab"), [&](std::string_view line) {
        const auto words = base::words_of(line);
        const bool names_path =
            !words.empty() && (words[0] == path || (words.size() > 1 && words[1] == path));
        found = found || (names_path && (options.empty() ||
                                         std::find(words.begin() + 1, words.end(), options) != words.end()));
    });
    return found;
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
        check_options(base::tr("{1} is in {2}", path, share_table), before.options_at_boot, options);
    if (before.now)
        check_options(base::tr("{1} is shared", path), before.options_now, options);
    if (before.now && before.at_boot)
        return false;
    note_new_table(share_table, journal);
    if (!before.now && !before.at_boot)
        journal.note(MadeShare{path, options});
    ensure_nfs_server();
    const WatchedCommands commands;
    if (sharefs(nullptr, options.c_str(), nullptr, path.c_str(), nullptr, method.c_str(), 0) != 0)
        throw Recorded();
    check_shared(path, options, {}, commands.any_was_killed());
    return true;
}

void check_shared(const std::string &path, const std::string &options, Effect effect, bool killed) {
    if (effect.now && killed && !is_shared_now(path, options))
        fail(Code::no_effect,
             base::tr(
                 "{1} is not shared: /usr/sbin/share ended without a word and without effect; was it killed?",
                 path));
    if (effect.at_boot && !is_in_share_table(path))
        fail(Code::no_effect,
             base::tr("{1} is not in {2}, although it was written there", path, share_table));
}

void check_withdrawn(const std::string &path, Effect effect, bool killed) {
    if (effect.now && killed && current_shares().count(path) != 0)
        fail(Code::no_effect, base::tr("{1} is still shared: /usr/sbin/unshare ended without a word and "
                                       "without effect; was it killed?",
                                       path));
    if (effect.at_boot && is_in_share_table(path))
        fail(Code::no_effect,
             base::tr("{1} is still in {2}, although its line was removed", path, share_table));
}

void withdraw_share(const std::string &method, const std::string &path) {
    require_command("/usr/sbin/unshare", base::tr("withdraws shares"));
    const WatchedCommands commands;
    if (unsharefs(nullptr, path.c_str(), nullptr, nullptr, method.c_str()) != 0)
        fail(Code::general, base::tr("cannot withdraw the share of {1}", path));
    check_withdrawn(path, {}, commands.any_was_killed());
}

std::string take_back(const MadeShare &made, const UndoContext &context) {
    const ShareState now = share_state(made.path);
    const bool ours =
        (now.now && now.options_now == made.options) || (now.at_boot && now.options_at_boot == made.options);
    if (!ours)
        return "";
    const WatchedCommands commands;
    if (unsharefs(nullptr, made.path.c_str(), nullptr, nullptr, context.method.c_str()) != 0)
        return base::tr("the share of {1}", made.path);
    check_withdrawn(made.path, {}, commands.any_was_killed());
    return "";
}

} // namespace hostadm::server
