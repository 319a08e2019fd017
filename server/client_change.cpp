// SPDX-License-Identifier: MIT
#include "server/client_change.hpp"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/beneath.hpp"
#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/boot_area.hpp"
#include "server/bootparams.hpp"
#include "server/client_address.hpp"
#include "server/client_root.hpp"
#include "server/disabling.hpp"
#include "server/failure.hpp"
#include "server/filling.hpp"
#include "server/host_tables.hpp"
#include "server/line_edits.hpp"
#include "server/new_client.hpp"
#include "server/pc_client.hpp"
#include "server/roots.hpp"
#include "server/rpl_area.hpp"
#include "server/shares.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

std::string name_of(const std::string &path) {
    return fs::path(path).filename();
}

bool same_name(std::string_view one, std::string_view other) {
    return base::lower_case(one) == base::lower_case(other);
}

// The files of a client's root that name itself or its server, in the ways of System V and of Debian.
constexpr const char *files_that_name[] = {"/etc/hosts",     "/etc/nodename", "/etc/hostname",
                                           "/etc/vfstab",    "/etc/fstab",    "/etc/defaultrouter",
                                           "/etc/bootparams"};

// A word of such a file: the name itself, the name in a domain, SERVER:PATH.
std::string changed_word(const std::string &word,
                         const std::vector<std::pair<std::string, std::string>> &words) {
    for (const auto &[from, to] : words) {
        if (from.empty() || from == to)
            continue;
        if (same_name(word, from))
            return to;
        const bool goes_on = word.size() > from.size() && same_name(word.substr(0, from.size()), from);
        const bool is_path = from.find('/') != from.npos;
        if (goes_on &&
            (is_path ? word[from.size()] == '/' : word[from.size()] == '.' || word[from.size()] == ':'))
            return to + word.substr(from.size());
    }
    return word;
}

std::string changed_text(std::string_view text,
                         const std::vector<std::pair<std::string, std::string>> &words) {
    std::string result;
    while (!text.empty()) {
        const bool blank = base::is_blank(text.front()) || text.front() == '\n';
        const auto end = std::find_if(text.begin(), text.end(),
                                      [&](char c) { return (base::is_blank(c) || c == '\n') != blank; });
        const std::string piece(text.begin(), end);
        text.remove_prefix(piece.size());
        if (blank) {
            result += piece;
            continue;
        }
        // SERVER:PATH is two words to be changed.
        const std::size_t colon = piece.find(":/");
        result += colon == piece.npos ? changed_word(piece, words)
                                      : changed_word(piece.substr(0, colon), words) + ":" +
                                            changed_word(piece.substr(colon + 1), words);
    }
    return result;
}

// Of a line of a table of hosts: every name that is the client's, alone or in a domain.
std::string with_name_changed(std::string_view line, const std::string &from, const std::string &to) {
    const std::size_t comment = line.find('#');
    std::string names(line.substr(0, comment));
    return changed_text(names, {{from, to}}) + std::string(comment == line.npos ? "" : line.substr(comment));
}

bool is_line_of(std::string_view line, const std::string &name) {
    const auto words = base::words_of(line.substr(0, line.find('#')));
    return words.size() > 1 && std::any_of(words.begin() + 1, words.end(),
                                           [&](std::string_view word) { return same_name(word, name); });
}

std::string with_key_changed(std::string_view line, const std::string &key) {
    const auto words = base::words_of(line);
    std::string result(line);
    result.replace(result.find(words.front()), words.front().size(), key);
    return result;
}

// A disabled client's lines count as well.
void check_free(const HostTable &table, const std::string &key, const Client &client) {
    std::string owner = table.name_of(key);
    if (owner.empty())
        owner = disabled_name_of(table.path(), key);
    if (!owner.empty() && !same_name(owner, client.name))
        fail(Code::taken, base::tr("{1} belongs to {2} in {3}", key, owner, table.path()));
}

// A program of that name that others may boot stays as it is.
void check_program_place(const std::string &place, const std::string &program) {
    if (exists(place) && !same_content(place, program))
        fail(Code::taken,
             base::tr("{1} is there already and differs from {2}; give the boot program another name", place,
                      program));
}

// Whether a share with these options is open to the client, and to nobody else.
bool is_open_to_alone(const std::string &options, const std::string &client) {
    bool open = false, to_all = false;
    for (std::size_t begin = 0; begin <= options.size();) {
        const std::size_t end = std::min(options.find(',', begin), options.size());
        const std::string word = options.substr(begin, end - begin);
        open = open || word.starts_with("rw=") || word.starts_with("ro=");
        to_all = to_all || word == "rw" || word == "ro";
        begin = end + 1;
    }
    return open && !to_all && !names_others(options, client);
}

// The client whose root, swap or dump file lies at a path or below it, in words.
std::string owner_of_path(const std::string &path) {
    RealPaths real_paths;
    for (const BootparamsClient &other : client_entries())
        for (const char *key : {"root", "swap", "dump"})
            if (const std::string theirs = path_of_item(other.items, key);
                theirs.starts_with('/') && is_at_or_below(real_paths.of(theirs), path))
                return base::tr(", as the {1} of {2}", key, other.name);
    return "";
}

} // namespace

// Options of a share such as rw=a:b,root=a, with one host called otherwise.
std::string options_with_name(const std::string &options, const std::string &from, const std::string &to) {
    std::string result;
    for (std::size_t begin = 0; begin <= options.size();) {
        const std::size_t end = std::min(options.find_first_of(",=:", begin), options.size());
        const std::string word = options.substr(begin, end - begin);
        result += same_name(word, from) ? to : word;
        if (end < options.size())
            result += options[end];
        begin = end + 1;
    }
    return result;
}

std::string take_back(const RenamedPath &renamed, const UndoContext &) {
    const base::Beneath folder = folder_on_server(renamed.from);
    const std::string from = name_of(renamed.from), to = name_of(renamed.to);
    if (folder.status(from))
        return "";
    if (identity_in(folder, to) != renamed.identity)
        return base::tr("{1}, which was {2}", renamed.to, renamed.from);
    folder.rename(to, from, RENAME_NOREPLACE);
    return "";
}

std::string take_back(const ResizedFile &resized, const UndoContext &) try {
    const base::Beneath folder = folder_on_server(resized.path);
    const std::string name = name_of(resized.path);
    if (identity_in(folder, name) != resized.identity)
        return "";
    const base::Descriptor file = folder.open_file(name, O_RDWR);
    if (identity_of(file) != resized.identity)
        return "";
    if (ftruncate(file.get(), static_cast<off_t>(resized.before)) != 0)
        return base::tr("the size of {1}", resized.path);
    mend_linux_swap_area(file, resized.path, resized.before);
    return "";
} catch (const Failure &failure) {
    return failure.what();
}

std::string take_back(const MovedShare &moved, const UndoContext &context) {
    const ShareState now = share_state(moved.path);
    if (now.now || now.at_boot)
        return "";
    return sharefs(nullptr, moved.options.c_str(), nullptr, moved.path.c_str(), moved.effect.c_str(),
                   context.method.c_str(), 0) == 0
               ? ""
               : base::tr("the share of {1}", moved.path);
}

std::string take_back(const RewrittenInRoot &rewritten, const UndoContext &) try {
    const base::Beneath root(rewritten.root, base::Links::inside);
    if (root.read(rewritten.file) == rewritten.after)
        root.rewrite(rewritten.file, rewritten.before);
    return "";
} catch (const base::BeneathError &error) {
    return error.what();
}

bool change_words_in_root(const std::string &path,
                          const std::vector<std::pair<std::string, std::string>> &words,
                          Journal &journal) try {
    const base::Beneath root(path, base::Links::inside);
    bool changed = false;
    for (const char *file : files_that_name) {
        if (!root.is_file(file))
            continue;
        const std::string before = root.read(file), after = changed_text(before, words);
        if (before == after)
            continue;
        journal.note(RewrittenInRoot{path, file, before, after});
        root.rewrite(file, after);
        changed = true;
    }
    return changed;
} catch (const base::BeneathError &error) {
    fail(Code::unusable, base::tr("{1}; nothing of the client has been changed", error.what()));
}

ClientChange::ClientChange(const Client &client, const WantedChange &wanted)
    : old_(client), new_(client), wanted_(wanted) {
    const std::string root = client.item("root");
    old_server_ = root.substr(0, root.find(':'));
    if (!wanted.name.empty())
        new_.name = wanted.name;
    if (!wanted.address.empty())
        new_.address = wanted.address;
    if (!wanted.ethernet.empty())
        new_.ethernet = wanted.ethernet;
    check();
    check_collisions();
    plan_moves();
    new_.items = new_items();
}

namespace {

void check_swap_grows(const std::string &path, std::uint64_t size) {
    struct stat now {};
    if (lstat(path.c_str(), &now) != 0 || static_cast<std::uint64_t>(now.st_size) != size)
        check_swap_size(path, size);
}

} // namespace

void ClientChange::check_address() const {
    const std::vector<base::OwnNetwork> networks = base::own_networks();
    check_client_address(wanted_.address, networks);
    // One that was told another name of this server may live behind a router.
    if (wanted_.address != old_.address && wanted_.server.empty() && old_server_ == base::own_host_name())
        check_in_own_network(wanted_.address, networks);
}

void ClientChange::check() const {
    if (!wanted_.address.empty())
        check_address();
    if (!wanted_.ethernet.empty())
        check_client_ethernet(wanted_.ethernet);
    if (old_.disabled && moves_shares())
        fail(
            Code::unusable,
            base::tr("{1} is disabled, and its shares are kept as they were; enable it first (client/enable)",
                     old_.name));
    if (is_server_itself(new_.name))
        fail(Code::taken, base::tr("{1} is this server", new_.name));
    if (const std::string root = old_.own_path("root"); !root.empty() && is_being_filled(root))
        fail(Code::incomplete, base::tr("{1} was filled only in part by a run that was cut off; add {2} once "
                                        "more, or remove it (client/remove), before it is changed",
                                        root, old_.name));
    if (!wanted_.server.empty() && base::address_of_host(wanted_.server).empty())
        fail(Code::not_found, base::tr("the server {1} has no address here, so the client could not be told "
                                       "where its root is; add a line to /etc/hosts, or give another name",
                                       wanted_.server));
    std::error_code error;
    if (!wanted_.boot_program.empty() && !fs::is_regular_file(wanted_.boot_program, error))
        fail(Code::not_found, base::tr("there is no boot program {1}", wanted_.boot_program));
    if (!wanted_.boot_program.empty() && old_.kind() == ClientKind::pc)
        refuse(base::tr("a PC boots the kernel of its root and no boot_program"));
    if (!wanted_.boot_program.empty() && old_.links.empty())
        fail(Code::unusable, base::tr("{1} has no boot links, so nothing tells its architecture; add it once "
                                      "more, with that boot program",
                                      old_.name));
    if (wanted_.swap_size && old_.own_path("swap").empty())
        fail(Code::unusable, base::tr("{1} has no swap file on this server", old_.name));
    if (wanted_.swap_size)
        check_swap_grows(old_.own_path("swap"), *wanted_.swap_size);
    if (!wanted_.share_options.empty() && !is_open_to_alone(wanted_.share_options, new_.name))
        refuse(base::tr("share_options {1} must open it to {2} and nobody else, such as {3}",
                        wanted_.share_options, new_.name, share_options_of(new_.name)));
    if (!wanted_.share_options.empty() && shares().empty())
        fail(Code::not_found, base::tr("nothing is shared for {1} alone", old_.name));
}

void ClientChange::check_collisions() const {
    if (!same_name(new_.name, old_.name)) {
        for (const BootparamsClient &other : client_entries())
            if (same_name(other.name, new_.name))
                fail(Code::taken, base::tr("{1} is a client already", new_.name));
        for (const HostTable &table : {hosts_table(), ethers_table()})
            if (const std::string key = table.key_of(new_.name); !key.empty())
                fail(Code::taken, base::tr("{1} has {2} in {3} already", new_.name, key, table.path()));
    }
    if (new_.address != old_.address)
        check_free(hosts_table(), new_.address, old_);
    if (new_.ethernet != old_.ethernet)
        check_free(ethers_table(), new_.ethernet, old_);
}

// The root, and the folders of the swap and the dump file, where they bear the client's name.
void ClientChange::plan_moves() {
    if (new_.name == old_.name)
        return;
    for (const char *key : {"root", "swap", "dump"}) {
        const std::string path = old_.own_path(key);
        if (path.empty())
            continue;
        const std::string named = std::string(key) == "root" ? path : parent_of(path);
        const bool known = std::any_of(moves_.begin(), moves_.end(), // it goes with the root that it lies in
                                       [&](const Move &move) { return is_at_or_below(named, move.from); });
        if (known || fs::path(named).filename() != old_.name || !exists(named))
            continue;
        const std::string to = fs::path(named).parent_path() / new_.name;
        if (exists(to))
            fail(Code::taken, base::tr("{1} is there already{2}, and {3} is to take that name", to,
                                       owner_of_path(to), named));
        moves_.push_back({named, to});
    }
}

std::string ClientChange::moved(const std::string &path) const {
    for (const Move &move : moves_)
        if (is_at_or_below(path, move.from))
            return move.to + path.substr(move.from.size());
    return path;
}

std::vector<Claim> ClientChange::claims() const {
    std::vector<Claim> all;
    for (const std::string &name : {old_.name, new_.name})
        all.push_back({Claim::Kind::name, name});
    for (const std::string &address : {old_.address, new_.address})
        if (!address.empty())
            all.push_back({Claim::Kind::address, address});
    for (const std::string &ethernet : {old_.ethernet, new_.ethernet})
        if (!ethernet.empty())
            all.push_back({Claim::Kind::ethernet, ethernet});
    for (const char *key : {"root", "swap", "dump"})
        if (const std::string path = old_.own_path(key); !path.empty()) {
            all.push_back({Claim::Kind::path, path});
            if (moved(path) != path)
                all.push_back({Claim::Kind::path, moved(path)});
        }
    std::sort(all.begin(), all.end(), [](const Claim &one, const Claim &other) {
        return std::tie(one.kind, one.value) < std::tie(other.kind, other.value);
    });
    all.erase(std::unique(all.begin(), all.end(),
                          [](const Claim &one, const Claim &other) {
                              return one.kind == other.kind && one.value == other.value;
                          }),
              all.end());
    return all;
}

void ClientChange::change_root_files(Journal &journal, Report &report) const {
    const std::string root = old_.own_path("root");
    if (root.empty() || !exists(root) || !has_own_root())
        return;
    std::vector<std::pair<std::string, std::string>> words;
    for (const Move &move : moves_)
        words.emplace_back(move.from, move.to);
    words.emplace_back(old_.address, new_.address);
    words.emplace_back(old_.name, new_.name);
    if (!wanted_.server.empty())
        words.emplace_back(old_server_, wanted_.server);
    report.step("files in its root", change_words_in_root(root, words, journal), root);
}

void ClientChange::change_tables(Journal &journal, Report &report) const {
    const struct {
        const char *step;
        HostTable table;
        const std::string &before, &after;
    } tables[] = {{"hosts", hosts_table(), old_.address, new_.address},
                  {"ethers", ethers_table(), old_.ethernet, new_.ethernet}};
    for (const auto &one : tables) {
        const std::string &before = one.before, &after = one.after;
        const auto change = [&](std::string_view line) -> std::optional<std::string> {
            if (const auto behind = disabled_line(line); behind && is_line_of(*behind, old_.name))
                return std::string(disabled_mark) +
                       with_key_changed(with_name_changed(*behind, old_.name, new_.name), after);
            if (!is_line_of(line, old_.name))
                return std::nullopt;
            const std::string named = with_name_changed(line, old_.name, new_.name);
            const auto words = base::words_of(line);
            return words.front() == before ? with_key_changed(named, after) : named;
        };
        bool changed = change_lines(one.table.path(), change, journal);
        if (before.empty() && !after.empty())
            changed = one.table.ensure(after, new_.name, journal) || changed;
        report.step(one.step, changed, after + " " + new_.name);
    }
}

std::string ClientChange::new_items() const {
    std::string items;
    const auto told = wanted_.swap_size ? swap_size_item(*wanted_.swap_size) : std::nullopt;
    for (const std::string_view word : base::words_of(old_.items)) {
        std::string item(word);
        const std::size_t equals = item.find('='), colon = item.find(':', equals);
        if (equals != item.npos && colon != item.npos) {
            std::string server = item.substr(equals + 1, colon - equals - 1);
            const std::string path = item.substr(colon + 1);
            if (!wanted_.server.empty() && same_name(server, old_server_))
                server = wanted_.server;
            const bool here =
                base::is_this_host(server, base::Lookup::name_services) || server == wanted_.server;
            const std::string before = here && path.starts_with('/') ? path_on_server(path) : path;
            const std::string place = moved(before);
            if (server != item.substr(equals + 1, colon - equals - 1) || place != before)
                item = item.substr(0, equals + 1) + server + ":" + place;
        }
        if (item.starts_with("swapsize=") && told)
            item = "swapsize=:" + told->path;
        items += (items.empty() ? "" : " ") + item;
    }
    if (told && item_of(items, "swapsize").empty())
        items += " swapsize=:" + told->path;
    return items;
}

void ClientChange::change_bootparams(Journal &journal, Report &report) const {
    if (new_.name == old_.name && new_.items == old_.items) {
        report.step("bootparams", false, new_.name + " " + new_.items);
        return;
    }
    std::string file = read_bootparams_file();
    BootparamsReader reader(file);
    for (BootparamsEntry entry; reader.next(entry);) {
        if (entry.name() != old_.name)
            continue;
        const std::string before = file.substr(entry.begin, entry.end - entry.begin),
                          after = new_.name + " " + new_.items + entry.tail;
        replace_lines(bootparams_path, before, after, journal);
        report.step("bootparams", true, new_.name + " " + new_.items);
        return;
    }
    fail(Code::not_found, base::tr("there is no client {1} in {2} any more", old_.name, bootparams_path));
}

void ClientChange::move_paths(Journal &journal, Report &report) const {
    for (const Move &move : moves_) {
        const base::Beneath folder = folder_on_server(move.from);
        const std::string from = name_of(move.from);
        journal.note(RenamedPath{move.from, move.to, identity_in(folder, from).value_or(FileIdentity{})});
        folder.rename(from, name_of(move.to), RENAME_NOREPLACE);
        report.step("path", true, base::tr("{1}, which was {2}", move.to, move.from));
    }
}

void ClientChange::resize_swap(Journal &journal, Report &report) const {
    if (!wanted_.swap_size)
        return;
    const std::string path = old_.own_path("swap");
    const base::Descriptor opened = folder_on_server(path).open_file(name_of(path), O_WRONLY);
    struct stat file {};
    if (fstat(opened.get(), &file) != 0)
        fail_errno(base::tr("cannot look at the swap file {1}", path));
    const auto before = static_cast<std::uint64_t>(file.st_size);
    if (before != *wanted_.swap_size) {
        journal.note(ResizedFile{path, before, identity_of(opened).value_or(FileIdentity{})});
        if (ftruncate(opened.get(), static_cast<off_t>(*wanted_.swap_size)) != 0)
            fail_errno(base::tr("cannot make {1} {2} bytes long", path, *wanted_.swap_size));
        if (old_.kind() == ClientKind::pc)
            make_linux_swap_area(opened, path, *wanted_.swap_size);
    }
    report.step("swap", before != *wanted_.swap_size, path);
}

std::string ClientChange::change_tftp_program(const BootAreaLock &lock, const std::string &method,
                                              Journal &journal, Report &report) const {
    if (wanted_.boot_program.empty())
        return old_.boot_program();
    const std::string program = name_of(wanted_.boot_program), place = std::string(tftpboot) + "/" + program;
    check_program_place(place, wanted_.boot_program);
    report.step("boot program",
                ensure_boot_program(lock, method, {}, program, {wanted_.boot_program, ""}, journal), place);
    return program;
}

void ClientChange::change_boot_area(const std::string &method, Journal &journal, Report &report) const {
    if (old_.links.empty() || (new_.address == old_.address && wanted_.boot_program.empty()))
        return;
    const BootAreaLock lock;
    const std::string program = change_tftp_program(lock, method, journal, report);
    if (new_.address != old_.address) {
        if (!boot_links_of(new_.address).empty())
            fail(Code::taken,
                 base::tr("there are links of {1} in {2} already; netboot/cleanup_tftpboot removes them",
                          new_.address, tftpboot));
        for (const BootLink &link : old_.links)
            journal.note(ReplacedBootLink{link.name, link.target});
        remove_boot_links(lock, method, old_.address);
    }
    const bool made = ensure_boot_links(lock, method, new_.address, old_.architecture(), program, journal);
    report.step("boot links", made || new_.address != old_.address, names_of(boot_links_of(new_.address)));
}

void ClientChange::change_menu(Journal &journal, Report &report) const {
    auto menu = pc_menu_of(old_.address);
    if (!menu)
        return;
    const PcNetwork network = pc_network_of(new_.address);
    menu->hostname = new_.name;
    menu->address = new_.address;
    menu->netmask = network.netmask;
    menu->router = pc_router(network.interface);
    menu->server_address = pc_server_address(wanted_.server.empty() ? old_server_ : wanted_.server, network);
    menu->root = moved(old_.own_path("root"));
    const BootAreaLock lock;
    if (new_.address != old_.address) {
        if (pc_menu_of(new_.address))
            fail(Code::taken,
                 base::tr("there is a menu {1} already; remove it first", pc_menu_path(new_.address)));
        remove_pc_menu(lock, old_.address, journal);
    }
    const bool changed = ensure_pc_menu(lock, *menu, journal);
    report.step("menu", changed, pc_menu_path(new_.address));
}

void ClientChange::change_rpl_area(const std::string &method, Journal &journal, Report &report) const {
    const std::string before = rpl_key(old_.ethernet), after = rpl_key(new_.ethernet);
    if (old_.links.empty() || (before == after && wanted_.boot_program.empty()))
        return;
    const RplAreaLock lock;
    std::string program = old_.boot_program();
    if (!wanted_.boot_program.empty()) {
        program = name_of(wanted_.boot_program);
        const std::string place = std::string(rplboot) + "/" + program;
        check_program_place(place, wanted_.boot_program);
        report.step("boot program",
                    ensure_rpl_files(lock, {{place, "boot program", {wanted_.boot_program}}}, journal),
                    place);
    }
    if (before != after) {
        if (!rpl_links_of(after).empty())
            fail(Code::taken,
                 base::tr("there are links of {1} in {2} already; netboot/cleanup_rplboot removes them",
                          after, rplboot));
        for (const BootLink &link : old_.links)
            journal.note(ReplacedRplLink{link.name, link.target});
        remove_rpl_links(lock, method, before);
    }
    const bool made = ensure_rpl_links(lock, method, after, program, journal);
    report.step("boot links", made || before != after, names_of(rpl_links_of(after)));
}

std::vector<ClientChange::Shared> ClientChange::shares() const {
    std::vector<Shared> all;
    std::vector<std::string> paths;
    for (const char *key : {"root", "swap", "dump"})
        if (const std::string path = old_.own_path(key); !path.empty() && has_own_root())
            paths.push_back(path == old_.own_path("root") ? path : share_path_of(path, old_.name));
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    for (const std::string &path : paths) {
        const ShareState state = share_state(path);
        const std::string options = state.now ? state.options_now : state.options_at_boot;
        if ((state.now || state.at_boot) && !names_others(options, old_.name))
            all.push_back({path, options, state.now, state.at_boot});
    }
    return all;
}

std::string ClientChange::new_options(const Shared &share) const {
    if (!wanted_.share_options.empty())
        return wanted_.share_options;
    return share.options == share_options_of(old_.name)
               ? share_options_of(new_.name)
               : options_with_name(share.options, old_.name, new_.name);
}

void ClientChange::make(const std::string &method, Journal &journal, Report &report) const {
    const std::vector<Shared> shared = moves_shares() ? shares() : std::vector<Shared>();
    change_root_files(journal, report);
    resize_swap(journal, report);
    for (const Shared &share : shared) {
        if (moved(share.path) == share.path && new_options(share) == share.options && share.now &&
            share.at_boot)
            continue;
        journal.note(MovedShare{share.path, share.options,
                                !share.now       ? "bootonly"
                                : !share.at_boot ? "nowonly"
                                                 : "nowandboot"});
        withdraw_share(method, share.path);
    }
    move_paths(journal, report);
    for (const Shared &share : shared) {
        const std::string path = moved(share.path);
        const std::string options = new_options(share);
        report.step("share", ensure_share(method, path, options, journal), path + " " + options);
    }
    change_tables(journal, report);
    change_bootparams(journal, report);
    const bool by_rpl = old_.kind() == ClientKind::rpl;
    if (by_rpl)
        change_rpl_area(method, journal, report);
    else if (old_.kind() == ClientKind::pc)
        change_menu(journal, report);
    else
        change_boot_area(method, journal, report);
    std::vector<std::string> written = {"/etc"};
    if (const char *area = by_rpl ? rplboot : tftpboot; exists(area))
        written.emplace_back(area);
    for (const char *key : {"root", "swap", "dump"})
        if (const std::string path = old_.own_path(key); !path.empty())
            written.push_back(parent_of(path));
    flush_file_systems(written);
}

} // namespace hostadm::server
