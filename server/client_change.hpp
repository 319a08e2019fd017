// SPDX-License-Identifier: MIT
// A client that gets another name, address, Ethernet address, server name, boot program, swap size or
// share options: everything that names the old value follows, in this server's tables, in the boot area, in the shares, and in the client's own root.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "server/boot_area.hpp"
#include "server/claims.hpp"
#include "server/clients.hpp"
#include "server/files.hpp"
#include "server/journal.hpp"
#include "server/report.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// What it is to be; nothing: it stays.
struct WantedChange {
    std::string name, address, ethernet, server;
    std::string boot_program; // a file of this server
    std::optional<std::uint64_t> swap_size;
    std::string share_options; // of all that it mounts from here and nobody else does
};

struct RenamedPath {
    static constexpr std::string_view kind = "renamed path";
    std::string from, to;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.from, self.to, self.identity.device, self.identity.inode, self.identity.born);
    }
};
std::string take_back(const RenamedPath &renamed, const UndoContext &context);

struct ResizedFile {
    static constexpr std::string_view kind = "resized file";
    std::string path;
    std::uint64_t before = 0;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.path, self.before, self.identity.device, self.identity.inode,
                        self.identity.born);
    }
};
std::string take_back(const ResizedFile &resized, const UndoContext &context);

// A file in a client's root.
struct RewrittenInRoot {
    static constexpr std::string_view kind = "rewritten in the client's root";
    std::string root, file, before, after;
    static auto fields(auto &self) { return std::tie(self.root, self.file, self.before, self.after); }
};
// What the client has changed since stays.
std::string take_back(const RewrittenInRoot &rewritten, const UndoContext &context);

// A share that was withdrawn because its path or its client gets another name.
struct MovedShare {
    static constexpr std::string_view kind = "moved share";
    std::string path, options, effect; // when it took effect: nowandboot, nowonly, bootonly
    static auto fields(auto &self) { return std::tie(self.path, self.options, self.effect); }
};
std::string take_back(const MovedShare &moved, const UndoContext &context);

class ClientChange {
public:
    // Throws Failure where the change makes no sense or meets another client's name, address or path, and names it.
    ClientChange(const Client &client, const WantedChange &wanted);

    std::vector<Claim> claims() const;
    // Makes all of it, noting each step before it is made. Throws Failure.
    void make(const std::string &method, Journal &journal, Report &report) const;

private:
    // A path on this server that bears the client's name, before and after.
    struct Move {
        std::string from, to;
    };

    void check() const;
    void check_address() const;
    void check_collisions() const;
    void plan_moves();
    std::string moved(const std::string &path) const;
    std::string new_items() const;
    bool has_own_root() const { return old_.kind() != ClientKind::install; }
    bool moves_shares() const { return new_.name != old_.name || !wanted_.share_options.empty(); }

    void change_root_files(Journal &journal, Report &report) const;
    void change_tables(Journal &journal, Report &report) const;
    void change_bootparams(Journal &journal, Report &report) const;
    void move_paths(Journal &journal, Report &report) const;
    void resize_swap(Journal &journal, Report &report) const;
    void change_boot_area(const std::string &method, Journal &journal, Report &report) const;
    void change_menu(Journal &journal, Report &report) const;
    void change_rpl_area(const std::string &method, Journal &journal, Report &report) const;
    std::string change_tftp_program(const BootAreaLock &lock, const std::string &method, Journal &journal,
                                    Report &report) const;
    struct Shared {
        std::string path, options;
        bool now, at_boot;
    };
    std::vector<Shared> shares() const;
    std::string new_options(const Shared &share) const;

    Client old_;
    Client new_; // as it is to be
    WantedChange wanted_;
    std::string old_server_; // as bootparams names it in its root item
    std::vector<Move> moves_;
};

// Makes a client's name, addresses and server known to the files in its root that speak of them, words for words.
// True when there was anything to change. Throws Failure.
bool change_words_in_root(const std::string &root,
                          const std::vector<std::pair<std::string, std::string>> &words, Journal &journal);

// Options of a share such as rw=a:b,root=a, with one host called otherwise.
std::string options_with_name(const std::string &options, const std::string &from, const std::string &to);

} // namespace hostadm::server
