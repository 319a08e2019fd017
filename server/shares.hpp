// SPDX-License-Identifier: MIT
// The directories that this server shares: now, and from the table of shares that are made at boot.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "server/journal.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

inline constexpr const char *share_table = "/etc/dfs/dfstab";

// What the server shares now: options by path. Nothing when there is no share command here.
std::unordered_map<std::string, std::string> current_shares();

// A line of the table of shares that are made at boot.
struct TableShare {
    std::string path, options;
    bool failed = false; // a "#share" line
    std::string description = {};
};
std::vector<TableShare> table_shares(const std::string &table = share_table);

// The whole table; empty when there is none.
std::string read_share_table(const std::string &table = share_table);
// A description as one word for the shell, which reads it in the command and again in the table at each boot.
std::string as_one_word(const std::string &text);
// A path as the library resolves it before it shares it.
std::string resolved_share_path(const std::string &path);

// How a path is shared, in one look.
struct ShareState {
    bool now = false, at_boot = false;
    std::string options_now, options_at_boot;
};
ShareState share_state(const std::string &path);

// Whether the list of shares that the share command keeps has a path, with these options unless they are empty. A look
// at its file: the command is not asked.
bool is_in_share_list(const std::string &path, const std::string &options = {});

// Whether options such as rw=a:b,root=a name other hosts than the client, or none.
bool names_others(const std::string &options, const std::string &client);

struct MadeShare {
    static constexpr std::string_view kind = "made share";
    std::string path, options;
    static auto fields(auto &self) { return std::tie(self.path, self.options); }
};
// It stays when it is another share by now.
std::string take_back(const MadeShare &made, const UndoContext &context);

// Where a share, or its withdrawal, is to take effect.
struct Effect {
    bool now = true, at_boot = true;
};

// Look afterwards whether the library's silence was success, and throw Failure when it was not: a command that was
// killed is silent too. Any other is believed.
void check_shared(const std::string &path, const std::string &options, Effect effect, bool killed);
void check_withdrawn(const std::string &path, Effect effect, bool killed);

// Shares a directory now and at boot, and looks whether it is so. False: it was so already. Throws Failure, also
// when it is shared with other options.
bool ensure_share(const std::string &method, const std::string &path, const std::string &options,
                  Journal &journal);

// Withdraws whatever share there is of the path, now and at boot, and looks whether it is gone.
void withdraw_share(const std::string &method, const std::string &path);

} // namespace hostadm::server
