// SPDX-License-Identifier: MIT
#include "server/client_copy.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <variant>
#include <vector>

#include "base/translation.hpp"
#include "server/client_change.hpp"
#include "server/client_root.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/filling.hpp"
#include "server/pc_client.hpp"
#include "server/shares.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

// The path with the new name where the old one stands, or the usual path.
std::string path_for(const std::string &path, const std::string &from, const std::string &to,
                     const std::string &usual) {
    fs::path result;
    bool found = false;
    for (const fs::path &part : fs::path(path)) {
        found = found || part == from;
        result /= part == from ? fs::path(to) : part;
    }
    return path_on_server(found ? result.string() : usual);
}

std::uint64_t size_of(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) ? static_cast<std::uint64_t>(file.st_size)
                                                                    : 0;
}

// What it is told that is neither a path of its own nor said of every client.
std::vector<BootparamsItem> further_items(const Client &old) {
    auto parsed = parse_items(old.items);
    if (const std::string *defect = std::get_if<std::string>(&parsed))
        fail(Code::table, base::tr("the entry of {1} in {2}: {3}", old.name, bootparams_path, *defect));
    auto items = std::get<std::vector<BootparamsItem>>(std::move(parsed));
    constexpr std::array<std::string_view, 5> own = {"root", "swap", "dump", "boottype", "swapsize"};
    std::erase_if(items, [&](const BootparamsItem &item) {
        return std::find(own.begin(), own.end(), item.key) != own.end();
    });
    return items;
}

std::string options_for(const Client &old, const std::string &name) {
    const ShareState share = share_state(old.own_path("root"));
    const std::string &options = share.now ? share.options_now : share.options_at_boot;
    return options.empty() || names_others(options, old.name) ? ""
                                                              : options_with_name(options, old.name, name);
}

// The name of its system tells which it is: NAME_VERSION.
Identity identity_of_pc(const Client &old) {
    const std::string system = fs::path(old.boot_program()).parent_path().filename();
    const std::size_t underline = system.rfind('_');
    if (old.boot_links() != "yes" || underline == system.npos)
        fail(Code::unusable, base::tr("{1} has no menu that the new client could boot by (boot links: {2})",
                                      old.name, old.boot_links()));
    return {"", old.architecture(), system.substr(0, underline), system.substr(underline + 1)};
}

Identity identity_of_client(const Client &old) {
    if (old.kind() == ClientKind::pc)
        return identity_of_pc(old);
    const std::string program = old.boot_program(), architecture = old.architecture();
    if (program.empty() || !old.links.front().whole || architecture.empty())
        fail(Code::unusable,
             base::tr("{1} has no boot program that the new client could boot (boot links: {2})", old.name,
                      old.boot_links()));
    // inetboot.ARCH.NAME_VERSION; the program is there, so only the release counts, for what the root is like.
    const std::size_t underline = program.rfind('_');
    return {"", architecture, "", underline == program.npos ? "" : program.substr(underline + 1)};
}

void check(const Client &old, const std::string &root) {
    if (old.kind() == ClientKind::install || root.empty())
        fail(Code::unusable,
             base::tr("{1}, of the kind {2}, has no root of its own on this server that could be copied",
                      old.name, name_of(old.kind())));
    if (!is_directory(root))
        fail(Code::not_found, base::tr("there is no root {1} of {2} to copy", root, old.name));
    if (is_being_filled(root))
        fail(Code::incomplete, base::tr("{1} was filled only in part by a run that was cut off; add {2} once "
                                        "more before it is copied",
                                        root, old.name));
}

} // namespace

NewClient copy_of(const Client &old, const std::string &name, const std::string &address,
                  const std::string &ethernet) {
    const std::string root = old.own_path("root"), swap = old.own_path("swap"), dump = old.own_path("dump");
    check(old, root);
    NewClient client;
    client.name = name;
    client.address = address;
    client.ethernet = ethernet;
    client.kind = old.kind();
    client.server = old.item("root").substr(0, old.item("root").find(':'));
    client.identity = identity_of_client(old);
    client.boot_name = old.boot_program();
    if (const auto menu = pc_menu_of(old.address); client.kind == ClientKind::pc && menu) {
        client.nfs4 = menu->nfs4;
        client.kernel_words = menu->extra_words;
    }
    client.root = path_for(root, old.name, name, "/export/root/" + name);
    client.source.tree = root;
    client.source.of_client = true;
    if (!swap.empty()) {
        client.swap = path_for(swap, old.name, name, "/export/swap/" + name + "/swap");
        client.swap_size = size_of(swap);
        if (const std::string folder = parent_of(swap); fs::path(folder).filename() == old.name)
            client.words.emplace_back(folder, parent_of(client.swap));
        client.words.emplace_back(swap, client.swap);
    }
    if (!dump.empty())
        client.dump = path_for(dump, old.name, name, "/export/dump/" + name + "/dump");
    client.words.emplace_back(root, client.root);
    client.words.emplace_back(old.address, address);
    client.words.emplace_back(old.name, name);
    client.more_items = further_items(old);
    client.options = options_for(old, name);
    return client;
}

} // namespace hostadm::server
