// SPDX-License-Identifier: MIT
#include "server/new_client.hpp"

#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <system_error>

#include "base/beneath.hpp"
#include "base/descriptor.hpp"
#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/client_address.hpp"
#include "server/client_root.hpp"
#include "server/disabling.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
#include "server/initramfs.hpp"
#include "server/pc_client.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

using method::Call;

namespace {

// A string as the functions want it that may replace it by one from malloc.
class PathArgument {
public:
    explicit PathArgument(const std::string &value) : given_(value), current_(given_.data()) {}
    char **place() { return &current_; }
    std::string value() const { return current_ == nullptr ? "" : current_; }

private:
    std::string given_;
    char *current_; // a replacement lives as long as the process
};

void read_paths(Call &call, NewClient &client) {
    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    const std::string &name = client.name;
    for (const char *argument : {"rootpath", "swappath", "dumppath"})
        if (call.given(argument) && call.get(argument).find_first_not_of('/') == std::string::npos)
            refuse(base::tr("the argument {1} cannot be \"/\"; it must be a path below it", argument));
    PathArgument boot(""), root(call.given("rootpath") ? call.get("rootpath") : "/export/root/" + name),
        swap(call.given("swappath") ? call.get("swappath") : "/export/swap/" + name + "/swap"),
        dump(call.get("dumppath"));
    default_boot_paths(call.method().c_str(), name.c_str(), inst_set.c_str(), impl_arch.c_str(),
                       os_name.c_str(), os_version.c_str(), boot.place(), root.place(), swap.place(),
                       dump.place());
    client.boot_name = boot.value();
    client.root = real_path_of(root.value());
    client.swap = path_on_server(swap.value(), client.root);
    client.dump = dump.value().empty() ? "" : path_on_server(dump.value(), client.root);
}

// The service that this server keeps for the client's identity. False: there is none.
bool use_service(NewClient &client) {
    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    client.service = find_service(os_name, os_version, inst_set);
    if (!client.service)
        return false;
    client.source = client.service->root_source();
    if (client.boot_program.empty() &&
        client.kind == ClientKind::diskless) // others have theirs in their root
        client.boot_program = client.service->boot_program_of(impl_arch);
    return true;
}

void read_source(Call &call, NewClient &client) {
    const bool from_tree = call.given("tree"), from_packages = call.given("packages");
    client.adopted = call.get("root") == "adopt";
    if (client.adopted && (from_tree || from_packages))
        refuse(base::tr("root=adopt takes the root as it is; give neither tree nor packages"));
    if (from_tree && from_packages)
        refuse(base::tr("give a tree or packages, not both"));
    if (from_packages && client.identity.os_version.starts_with("4."))
        refuse(base::tr("a 4.x release has no packages; give the tree that its root is copied from"));
    if (from_tree)
        client.source.tree = split_paths(call.get("tree")).front();
    if (from_packages)
        client.source.packages = split_paths(call.get("packages"));
    if (call.given("install_hierarchy"))
        client.hierarchy = call.get("install_hierarchy");
    if (from_tree || from_packages || client.adopted)
        return;
    if (client.hierarchy.empty() && use_service(client))
        return;

    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    PathArgument hierarchy(client.hierarchy), boot(client.boot_name), image("");
    default_install_paths(call.method().c_str(), base::own_host_name().c_str(), inst_set.c_str(),
                          impl_arch.c_str(), os_name.c_str(), os_version.c_str(), hierarchy.place(),
                          boot.place(), image.place());
    client.hierarchy = hierarchy.value();
    if (!os_version.starts_with("4.") && holds_packages(image.value()))
        client.source.packages = {image.value()};
    else
        client.source.tree = image.value();
}

void check_server(const Call &call, const NewClient &client) {
    if (call.given("server") && base::address_of_host(client.server).empty())
        fail(Code::not_found, base::tr("the server {1} has no address here, so the client could not be told "
                                       "where its root is; add a line to /etc/hosts, or give another name",
                                       client.server));
}

// One that is added already, or that was told another name of this server, may live behind a router.
void check_address(const Call &call, const NewClient &client) {
    const std::vector<base::OwnNetwork> networks = base::own_networks();
    check_client_address(client.address, networks);
    if (!call.given("server") && client.server == base::own_host_name() && client_items(client.name).empty())
        check_in_own_network(client.address, networks);
}

void check_table(const HostTable &table, const std::string &key, const std::string &name) {
    const HostTable::Added found = table.examine(key, name);
    if (found.outcome == HostTable::Outcome::conflict)
        fail(Code::taken, client_items(client_name_as_written(name)).empty()
                              ? found.conflict
                              : base::tr("{1}; client/change gives a client another", found.conflict));
    if (const std::string owner = disabled_name_of(table.path(), key);
        !owner.empty() && base::lower_case(owner) != base::lower_case(name))
        fail(Code::taken, base::tr("{1} belongs to {2} in {3}, which is disabled", key, owner, table.path()));
}

// Two clients must not share a file, and neither may reach the other's root through its own.
void check_other_client(const NewClient &client, const BootparamsClient &other, RealPaths &real_paths) {
    for (const std::string key : {"root", "swap", "dump"}) {
        const std::string item = path_of_item(other.items, key);
        if (item.empty() || item.front() != '/')
            continue;
        const std::string theirs = real_paths.of(item);
        for (const std::string &ours : {client.root, client.swap, client.dump}) {
            if (ours == theirs)
                fail(Code::taken, base::tr("{1} is the {2} of {3}", ours, key, other.name));
            if (key == "root" && !ours.empty() && is_at_or_below(ours, theirs))
                fail(Code::taken, base::tr("{1} lies in the root of {2}", ours, other.name));
        }
        if (is_at_or_below(theirs, client.root))
            fail(Code::taken,
                 base::tr("{1} holds the {2} of {3}, {4}", client.root, key, other.name, theirs));
    }
}

void check_other_clients(const NewClient &client) {
    RealPaths real_paths;
    for (const BootparamsClient &other : client_entries()) {
        if (base::lower_case(other.name) == base::lower_case(client.name) &&
            !disabled_ethernet_of(other.name).empty())
            fail(Code::taken,
                 base::tr("{1} is a client already, and disabled; client/enable lets it boot again",
                          client.name));
        if (base::lower_case(other.name) != base::lower_case(client.name))
            check_other_client(client, other, real_paths);
        else if (other.name != client.name)
            fail(Code::taken, base::tr("{1} is a client already, written {2} in /etc/bootparams", client.name,
                                       other.name));
    }
}

// Whether two items SERVER:PATH mean the same, however their paths are spelled.
bool is_same_item(const std::string &one, const std::string &other) {
    const auto plain = [](const std::string &item) {
        const std::size_t path = item.find(':') + 1;
        return item.substr(0, path) + real_path_of(item.substr(path));
    };
    return plain(one) == plain(other);
}

// Whether bootparams has this client with this root already; an item that it lacks may still be added.
bool check_entry(const NewClient &client) {
    const std::string items = client_items(client.name);
    const struct {
        const char *key;
        const std::string &path;
    } wanted[] = {{"root", client.root}, {"swap", client.swap}, {"dump", client.dump}};
    for (const auto &[key, path] : wanted) {
        const std::string there = item_of(items, key);
        const std::string ours = path.empty() ? "" : client.server + ":" + path;
        if (!there.empty() && !is_same_item(there, ours))
            fail(Code::taken, ours.empty()
                                  ? base::tr("{1} is a client already, with {2}={3} in /etc/bootparams; "
                                             "remove it first (client/remove)",
                                             client.name, key, there)
                                  : base::tr("{1} is a client already, with {2}={3} in /etc/bootparams, not "
                                             "{4}; remove it first (client/remove)",
                                             client.name, key, there, ours));
    }
    const bool known = !item_of(items, "root").empty();
    // A diskless client may have got a cache since.
    if (const ClientKind there = kind_of(items);
        known && there != client.kind && there != ClientKind::cache_only)
        fail(Code::taken,
             base::tr("{1} is a client already, of the kind {2}; remove it first (client/remove)",
                      client.name, name_of(there)));
    return known;
}

// It may have been a client's: no link in it counts for more than that client saw.
void check_adopted_root(const NewClient &client) {
    if (!exists(client.root))
        fail(Code::not_found,
             base::tr("there is no root {1} to adopt; leave out root=adopt, and it is made", client.root));
    if (is_being_filled(client.root))
        fail(Code::incomplete, base::tr("{1} was filled only in part by a run that was cut off; add the "
                                        "client without root=adopt, which begins anew",
                                        client.root));
    if (fs::is_symlink(client.root) || !is_directory(client.root))
        return; // said in general
    const base::Beneath files(client.root, base::Links::inside);
    if (!files.is_directory("etc") || !files.is_directory("usr"))
        fail(Code::unusable,
             files.is_directory("etc")
                 ? base::tr("{1} is no root file system that could be adopted: it lacks usr", client.root)
                 : base::tr("{1} is no root file system that could be adopted: it lacks etc", client.root));
}

void check_root(const NewClient &client, bool known) {
    if (is_near_server_root(client.root))
        fail(Code::unusable,
             base::tr("{1} is too near to the root of this server; name a rootpath that lies deeper",
                      client.root));
    for (const std::string &file : {client.swap, client.dump})
        if (!file.empty() && is_at_or_below(client.root, file))
            fail(Code::unusable,
                 base::tr("the root {1} cannot lie at {2}, which is to be a file", client.root, file));
    if (client.adopted)
        check_adopted_root(client);
    if (!exists(client.root))
        return;
    if (fs::is_symlink(client.root))
        fail(
            Code::unusable,
            base::tr("{1} is a symbolic link; give the directory that it leads to as rootpath", client.root));
    if (!is_directory(client.root))
        fail(Code::unusable, base::tr("{1} is no directory", client.root));
    if (!known && !client.adopted && !fs::is_empty(client.root) && !is_being_filled(client.root) &&
        !is_filled_for(client.root, client.name))
        fail(Code::taken, base::tr("{1} holds files already, and {2} does not boot from it; remove it or "
                                   "name another rootpath, or take it as it is with root=adopt",
                                   client.root, client.name));
}

// What comes with packages is not there yet.
void check_rpl_sources(const NewClient &client) {
    if (client.hierarchy.empty() && client.source.tree.empty())
        return;
    for (const RplFile &file : client.rpl_sources())
        if (!exists(file.copy) && file.source().empty())
            fail_without_source(file);
}

// What a PC boots, and its place in a network. What comes with packages is not there yet.
void check_kernel(const NewClient &client) {
    client.pc_menu(); // tells what stands in its way
    const std::string &where = client.adopted ? client.root : client.source.tree;
    if (!where.empty() && is_directory(where))
        require_kernel(base::Beneath(where, base::Links::inside));
}

void require_version4(const base::Descriptor &initramfs, const std::string &path) {
    if (const InitramfsRoots roots = roots_of_initramfs(initramfs); roots.known && !roots.nfs4)
        fail(Code::unusable, base::tr("the initramfs {1} cannot mount a root by version 4 of NFS; one that "
                                      "service/add makes of "
                                      "a tree can; leave out nfs=4, or let the PC be of such a system",
                                      path));
}

// Of a system that other PCs boot already theirs counts. What comes with packages is not there yet.
void check_version4(const NewClient &client) {
    const std::string place = pc_initramfs_in_place(client.pc_menu().system);
    const std::string &where =
        client.adopted || client.source.tree.empty() ? client.root : client.source.tree;
    if (!place.empty())
        return require_version4(base::Descriptor(open(place.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)),
                                place);
    if (!is_directory(where))
        return;
    const base::Beneath root(where, base::Links::inside);
    if (const std::string newest = newest_kernel_in(root).initramfs; !newest.empty())
        require_version4(root.open_file(newest), root.path_of(newest));
}

void check_source(const NewClient &client) {
    std::vector<std::string> sources = client.source.packages;
    if (!client.source.tree.empty())
        sources.push_back(client.source.tree);
    for (const std::string &source : sources) {
        if (!is_directory(source))
            fail(Code::not_found, base::tr("there is no operating system at {1}: no such directory", source));
        if (const std::string defect = defect_of_source(client.root, source); !defect.empty())
            fail(Code::unusable, defect);
    }
    if (!client.source.tree.empty() && !is_tree(client.source.tree))
        fail(Code::unusable,
             base::tr("{1} is no root file system: it holds neither etc nor usr", client.source.tree));
    for (const std::string &directory : client.source.packages)
        if (!holds_packages(directory))
            fail(Code::unusable,
                 base::tr("{1} holds no packages (folders with a pkginfo file in them)", directory));
    if (!client.boot_program.empty()) {
        if (std::error_code error; !fs::is_regular_file(client.boot_program, error))
            fail(Code::not_found, base::tr("there is no boot program {1}", client.boot_program));
    } else if (client.kind == ClientKind::rpl) {
        check_rpl_sources(client);
    } else if (client.kind == ClientKind::pc) {
        check_kernel(client);
    } else if (!exists(std::string(tftpboot) + "/" + client.boot_name)) {
        if (client.adopted && client.hierarchy.empty()) {
            if (!boot_program_in(client.root, client.identity).is_open())
                fail(Code::not_found,
                     base::tr("there is no boot program for {1} in {2} nor {3}/{4}; give boot_program or "
                              "install_hierarchy",
                              client.identity.implementation_arch, client.root, tftpboot, client.boot_name));
        } else if (const std::string where = client.hierarchy.empty() ? client.source.tree : client.hierarchy;
                   !where.empty())
            find_os(where, client.identity);
    }
}

// A client that has its root boots the system that is in it.
void check_boot_program(const NewClient &client, bool known) {
    if (!known || !exists(client.root) || client.kind != ClientKind::diskless)
        return;
    for (const BootLink &link : boot_links_of(client.address))
        if (!link.target.empty() && link.target != client.boot_name)
            fail(Code::taken,
                 base::tr("{1} is a client already and boots {2}, not {3}; remove it first (client/remove)",
                          client.name, link.target, client.boot_name));
}

// Words of the kernel's that are told of the client's own record.
bool is_told_already(std::string_view word) {
    return word == "ro" || word == "rw" || word.starts_with("boot=") || word.starts_with("nfsroot=") ||
           word.starts_with("ip=");
}

// With a blank between each two.
std::string words_once(const std::string &text) {
    std::string words;
    for (const std::string_view word : base::words_of(text))
        words.append(words.empty() ? "" : " ").append(word);
    return words;
}

void read_pc_words(const Call &call, NewClient &client) {
    client.nfs4 = call.get("nfs") == "4";
    client.kernel_words = words_once(call.get("kernel_words"));
    if (call.get("boot") == "pc")
        client.kind = ClientKind::pc;
    else if (client.nfs4 || !client.kernel_words.empty())
        refuse(base::tr("nfs and kernel_words are for a PC; give boot=pc too"));
    if (client.kind == ClientKind::pc && call.given("boot_program"))
        refuse(base::tr("a PC boots the kernel of its root and no boot_program"));
    for (const std::string_view word : base::words_of(client.kernel_words))
        if (is_told_already(word))
            refuse(base::tr("kernel_words: {1} is told of what this server knows of the client",
                            std::string(word)));
}

} // namespace

std::uint64_t bytes_in(const std::string &size) {
    std::uint64_t count = 0;
    const auto end = std::from_chars(size.data(), size.data() + size.size(), count).ptr;
    const std::string unit = base::lower_case(std::string(end, size.data() + size.size()));
    const int shift = unit == "k" ? 10 : unit == "m" ? 20 : unit == "g" ? 30 : 0;
    constexpr std::uint64_t largest = 1ull << 62;
    if (count == 0)
        refuse(base::tr("a swap file of {1} bytes is of no use; give a swap_size such as 32m", size));
    if (count > largest >> shift)
        refuse(base::tr("a swap file of {1} is more than any file can hold", size));
    return count << shift;
}

void check_swap_size(const NewClient &client) {
    if (!client.swap.empty() && !exists(client.swap))
        check_swap_size(client.swap, client.swap_size);
}

void check_swap_size(const std::string &path, std::uint64_t size) {
    constexpr std::uint64_t least = 40 << 10; // ten pages; nothing smaller can be made a swap area
    if (size < least)
        refuse(base::tr(
            "a swap file of {1} bytes is of no use to a client, which needs 40k at least; give a swap_size "
            "such as 32m",
            size));
    const std::string folder = nearest_existing(parent_of(path));
    struct statfs file_system {};
    // What an overlay says is the room of its upper layer, such as that of a preview.
    if (statfs(folder.c_str(), &file_system) != 0 || file_system.f_type == OVERLAYFS_SUPER_MAGIC ||
        file_system.f_blocks == 0)
        return;
    struct stat there {};
    const std::uint64_t taken =
        lstat(path.c_str(), &there) == 0 ? static_cast<std::uint64_t>(there.st_blocks) * 512 : 0;
    const auto room = taken + static_cast<std::uint64_t>(file_system.f_bavail) *
                                  static_cast<std::uint64_t>(file_system.f_frsize);
    if (size > room)
        fail(Code::system, base::tr("a swap file of {1} bytes is larger than the {2} bytes that are free at "
                                    "{3}; although it takes no "
                                    "room until it is used, the client could never use it up; give a smaller "
                                    "swap_size, or a swappath "
                                    "on a larger disk",
                                    size, room, folder));
}

std::vector<std::string> NewClient::shared_directories() const {
    std::vector<std::string> shared = {root};
    for (const std::string &file : {swap, dump}) {
        const std::string path = file.empty() ? root : share_path_of(file, name);
        if (!is_at_or_below(path, root) && path != shared.back())
            shared.push_back(path);
    }
    return shared;
}

std::vector<BootparamsItem> NewClient::items() const {
    std::vector<BootparamsItem> all = {{"root", server, root}};
    if (!swap.empty())
        all.push_back({"swap", server, swap});
    if (!dump.empty())
        all.push_back({"dump", server, dump});
    all.push_back(boot_type_item(kind));
    if (const auto told = swap_size_item(swap_size))
        all.push_back(*told);
    all.insert(all.end(), more_items.begin(), more_items.end());
    return all;
}

BootProgramSource NewClient::boot_program_source() const {
    // A client's own root is not read by path.
    const std::string made_of = adopted || source.of_client ? "" : source.tree.empty() ? root : source.tree;
    return {boot_program, hierarchy.empty() ? made_of : hierarchy};
}

std::vector<RplFile> NewClient::rpl_sources() const {
    std::vector<std::string> images;
    const std::string where = boot_program_source().hierarchy, above = where == "/" ? "" : where;
    if (!where.empty())
        images = {rpl_image(above, identity), above + "/usr", above};
    images.push_back(rpl_image("", identity));
    std::vector<RplFile> files = rpl_files(images, identity.implementation_arch, boot_name);
    if (!boot_program.empty())
        files.front().candidates = {boot_program};
    return files;
}

PcMenu NewClient::pc_menu() const {
    const PcNetwork network = pc_network_of(address);
    return {.hostname = name,
            .address = address,
            .netmask = network.netmask,
            .router = pc_router(network.interface),
            .server_address = pc_server_address(server, network),
            .root = root,
            .system = pc_system_name(identity.os_name, identity.os_version),
            .nfs4 = nfs4,
            .extra_words = kernel_words};
}

std::vector<Claim> NewClient::claims() const {
    std::vector<Claim> all = {{Claim::Kind::name, name},
                              {Claim::Kind::address, address},
                              {Claim::Kind::ethernet, ethernet},
                              {Claim::Kind::path, root}};
    for (const std::string &file : {swap, dump})
        if (!file.empty())
            all.push_back({Claim::Kind::path, file});
    return all;
}

std::vector<std::string> NewClient::names_of_packages() const {
    std::vector<std::string> names;
    for (const std::string &directory : source.packages)
        for (const SpooledPackage &package : packages_in(directory))
            names.push_back(package.name);
    return names;
}

bool NewClient::mounts_usr() const {
    if (!service || !service->lends_usr())
        return false;
    const base::Beneath files(root);
    return !files.is_directory("usr") || files.names("usr").empty();
}

Identity read_identity(Call &call) {
    char *texts[4] = {};
    if (const int missing = get_arch_strings(&texts[0], &texts[1], &texts[2], &texts[3]); missing != 0)
        fail(Code::general, base::tr("{1} is missing", arch_xlate(missing)));
    Identity identity{texts[0], texts[1], texts[2], texts[3]};
    for (char *text : texts)
        std::free(text);
    call.progress(base::tr("adding {1}, a client of {2} with {3} {4}", call.get("hostname"),
                           identity.implementation_arch, identity.os_name, identity.os_version));
    return identity;
}

NewClient read_new_client(Call &call) {
    NewClient client;
    client.identity = read_identity(call);
    client.name = call.get("hostname");
    if (call.get("boot") == "rpl")
        client.kind = ClientKind::rpl;
    read_pc_words(call, client);
    client.boot_program = call.get("boot_program");
    client.address = call.get("address");
    client.ethernet = call.get("ethernet");
    client.server = call.given("server") ? call.get("server") : base::own_host_name();
    client.swap_size = bytes_in(call.get("swap_size"));
    client.prepare = call.get("prepare") == "yes";
    read_paths(call, client);
    read_source(call, client);
    return client;
}

// A swap file that is there already must be like the one that would be made.
void check_swap(const NewClient &client) {
    const std::string &path = client.swap;
    const std::uint64_t size = client.swap_size;
    struct stat file {};
    if (lstat(path.c_str(), &file) != 0)
        return;
    if (!S_ISREG(file.st_mode))
        fail(Code::unusable, base::tr("{1} is no plain file", path));
    if (static_cast<std::uint64_t>(file.st_size) != size)
        fail(Code::taken,
             base::tr("{1} has {2} bytes already, not {3}; give that swap_size or remove the file", path,
                      file.st_size, size));
}

// A dump file may hold a dump by now.
void check_dump(const NewClient &client) {
    const std::string &path = client.dump;
    if (std::error_code error; exists(path) && !fs::is_regular_file(fs::symlink_status(path, error)))
        fail(Code::unusable, base::tr("{1} is no plain file", path));
}

void check_name_and_addresses(const Call &call, const NewClient &client) {
    check_server(call, client);
    check_address(call, client);
    if (is_server_itself(client.name))
        fail(Code::taken, base::tr("{1} is this server", client.name));
    check_client_ethernet(client.ethernet);
    check_table(hosts_table(), client.address, client.name);
    check_table(ethers_table(), client.ethernet, client.name);
}

bool check_new_client(const Call &call, const NewClient &client) {
    check_name_and_addresses(call, client);
    check_other_clients(client);
    const bool known = check_entry(client);
    check_root(client, known);
    if (!known || !exists(client.root) || client.adopted)
        check_source(client);
    if (client.kind == ClientKind::pc && client.nfs4)
        check_version4(client);
    check_boot_program(client, known);
    check_swap(client);
    // A size that nobody asked for is looked at when the file is made.
    if (call.get("swap_size") != default_swap_size)
        check_swap_size(client);
    check_dump(client);
    return known;
}

std::vector<Warning> warnings_about(const NewClient &client) {
    std::vector<Warning> all;
    const std::string told = base::address_of_host(client.server);
    if (told.empty())
        all.push_back(
            {"server", base::tr("the name {1} has no address here, so the client cannot be told where its "
                                "root is; add a line to /etc/hosts, or give another server name",
                                client.server)});
    else if (told.starts_with("127."))
        all.push_back(
            {"server",
             base::tr("{1} has the address {2} here, which the client would be told and cannot reach; give "
                      "it this server's real address in /etc/hosts, or give another server name",
                      client.server, told)});
    else if (!base::is_own_address(told))
        all.push_back({"server", base::tr("{1} has the address {2} here, which is none of this server's own; "
                                          "the client would look for its root there",
                                          client.server, told)});
    if (!base::is_in_own_network(client.address))
        all.push_back({"address", base::tr("no interface of this server is in the network of {1}, so reverse "
                                           "ARP and broadcasts from there will not be answered",
                                           client.address)});
    return all;
}

} // namespace hostadm::server
