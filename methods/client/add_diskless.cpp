// SPDX-License-Identifier: MIT
// The whole of what a diskless client needs on this server, step by step; what a failure leaves half done is
// taken back.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/ether.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "support/boot_daemons.hpp"
#include "support/boot_links.hpp"
#include "support/client_entry.hpp"
#include "support/client_lock.hpp"
#include "support/clients.hpp"
#include "support/hierarchy.hpp"
#include "support/host_tables.hpp"
#include "support/local_host.hpp"
#include "support/roots.hpp"
#include "support/undo.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::support;
namespace fs = std::filesystem;

const Description description{
    .name = "client/add_diskless",
    .purpose =
        "let a diskless client boot from this server: root, swap, share, boot program, tables, daemons",
    .arguments =
        {{"hostname", Kind::host, "the client's name", true},
         {"address", Kind::address, "its IPv4 address", true},
         {"ethernet", Kind::ethernet, "its Ethernet address", true},
         {"instruction_set", Kind::word, "its instruction set, such as kel4", true},
         {"implementation_arch", Kind::word, "its implementation architecture, such as kel4m", true},
         {"os_name", Kind::word, "name of its operating system", true},
         {"os_version", Kind::release, "version of it", true},
         {"tree", Kind::path, "fill the root from this ready tree; any release"},
         {"packages", Kind::path,
          "fill the root from these directories of packages, with commas between them; not for a 4.x "
          "release"},
         {"install_hierarchy", Kind::path,
          "where the operating system is found when neither tree nor packages is given, and its boot program "
          "(default for the program: the tree, or the client's new root)"},
         {"boot_program", Kind::path, "the boot program itself, if the install hierarchy does not hold it"},
         {"rootpath", Kind::path, "the client's root (default /export/root/HOSTNAME)"},
         {"swappath", Kind::path, "its swap file (default /export/swap/HOSTNAME/swap)"},
         {"swap_size", Kind::size, "size of the swap file, which takes no room until it is used", false,
          "32m"},
         {"dumppath", Kind::path, "its dump file (default: none)"},
         {"server", Kind::host, "this server's name, as the client is told (default: this host's name)"}},
    .outputs = {{"pathname", "the root that was shared"},
                {"boot_program", "name of the boot program in /tftpboot"},
                {"install_hierarchy", "where the operating system was looked for, if nothing was said"},
                {"rootpath", "what the root was made of there"}},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
};

// A failure that has been recorded by the library already.
struct Recorded {};

[[noreturn]] void fail(const std::string &text) {
    throw std::runtime_error(text);
}

[[noreturn]] void fail_errno(const std::string &what) {
    fail(what + ": " + std::strerror(errno));
}

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

std::uint64_t bytes_in(const std::string &size) {
    std::uint64_t count = 0;
    const auto end = std::from_chars(size.data(), size.data() + size.size(), count).ptr;
    const std::string unit = lower_case(std::string(end, size.data() + size.size()));
    const int shift = unit == "k" ? 10 : unit == "m" ? 20 : unit == "g" ? 30 : 0;
    constexpr std::uint64_t largest = 1ull << 62;
    if (count > largest >> shift)
        fail("a swap file of " + size + " is more than any file can hold");
    return count << shift;
}

// Keeps others out of /tftpboot as long as a boot program and its links belong together only half.
class BootAreaLock {
public:
    BootAreaLock() : directory_(open(tftpboot, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (directory_ < 0 || flock(directory_, LOCK_EX) != 0)
            fail_errno(std::string("cannot lock ") + tftpboot);
    }
    ~BootAreaLock() { close(directory_); }
    BootAreaLock(const BootAreaLock &) = delete;
    BootAreaLock &operator=(const BootAreaLock &) = delete;

private:
    int directory_;
};

std::string upper_case(std::string text) {
    for (char &c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

struct Client {
    std::string hostname, address, ethernet, server;
    Identity identity;
    std::string root, swap, dump, boot_name;
    std::uint64_t swap_size = 0;
    std::string tree;                  // to copy
    std::vector<std::string> packages; // to install
    std::string hierarchy;             // holds the boot program

    std::string share_options() const { return "rw=" + hostname + ",root=" + hostname; }
};

bool exists(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0;
}

bool is_directory(const std::string &path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

std::string parent_of(const std::string &path) {
    return fs::path(path).parent_path();
}

// ---- identity and paths ----

Identity read_identity(Call &call) {
    char *texts[4] = {};
    if (const int missing = get_arch_strings(&texts[0], &texts[1], &texts[2], &texts[3]); missing != 0)
        fail(std::string(arch_xlate(missing)) + " is missing");
    Identity identity{texts[0], texts[1], texts[2], texts[3]};
    for (char *text : texts)
        std::free(text);
    call.progress("adding " + call.get("hostname") + ", a client of " + identity.implementation_arch +
                  " with " + identity.os_name + " " + identity.os_version);
    return identity;
}

void read_paths(Call &call, Client &client) {
    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    const std::string &name = client.hostname;
    PathArgument boot(""), root(call.given("rootpath") ? call.get("rootpath") : "/export/root/" + name),
        swap(call.given("swappath") ? call.get("swappath") : "/export/swap/" + name + "/swap"),
        dump(call.get("dumppath"));
    default_boot_paths(call.method().c_str(), name.c_str(), inst_set.c_str(), impl_arch.c_str(),
                       os_name.c_str(), os_version.c_str(), boot.place(), root.place(), swap.place(),
                       dump.place());
    client.boot_name = boot.value();
    client.root = real_path_of(root.value());
    client.swap = real_path_of(swap.value());
    client.dump = dump.value().empty() ? "" : real_path_of(dump.value());
}

void read_source(Call &call, Client &client) {
    const bool from_tree = call.given("tree"), from_packages = call.given("packages");
    if (from_tree && from_packages)
        fail("give a tree or packages, not both");
    if (from_packages && client.identity.os_version.starts_with("4."))
        fail("a 4.x release has no packages; give the tree that its root is copied from");
    if (from_tree)
        client.tree = split_paths(call.get("tree")).front();
    if (from_packages)
        client.packages = split_paths(call.get("packages"));
    if (call.given("install_hierarchy"))
        client.hierarchy = call.get("install_hierarchy");
    if (from_tree || from_packages)
        return;

    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    PathArgument hierarchy(client.hierarchy), boot(client.boot_name), image("");
    default_install_paths(call.method().c_str(), local_host_name().c_str(), inst_set.c_str(),
                          impl_arch.c_str(), os_name.c_str(), os_version.c_str(), hierarchy.place(),
                          boot.place(), image.place());
    client.hierarchy = hierarchy.value();
    if (!os_version.starts_with("4.") && holds_packages(image.value()))
        client.packages = {image.value()};
    else
        client.tree = image.value();
}

Client read_client(Call &call) {
    Client client;
    client.identity = read_identity(call);
    client.hostname = call.get("hostname");
    client.address = call.get("address");
    client.ethernet = call.get("ethernet");
    client.server = call.given("server") ? call.get("server") : local_host_name();
    client.swap_size = bytes_in(call.get("swap_size"));
    read_paths(call, client);
    read_source(call, client);
    return client;
}

// ---- what stands in the way ----

void check_addresses(const Client &client) {
    const in_addr_t address = ntohl(inet_addr(client.address.c_str()));
    if (address >> 24 == 0 || address >> 24 == 127 || address >> 28 >= 14)
        fail(client.address + " is no address of a host");
    if (is_own_address(client.address))
        fail(client.address + " is an address of this server");
    if (lower_case(client.hostname) == lower_case(local_host_name()) ||
        lower_case(client.hostname) == "localhost")
        fail(client.hostname + " is this server");
    const ether_addr *ethernet = ether_aton(client.ethernet.c_str());
    constexpr std::uint8_t nobody[6] = {};
    if (ethernet == nullptr || (ethernet->ether_addr_octet[0] & 1) != 0 ||
        std::memcmp(ethernet->ether_addr_octet, nobody, sizeof nobody) == 0)
        fail(client.ethernet + " is no Ethernet address of a single host");
}

void check_table(const HostTable &table, const std::string &key, const std::string &name) {
    const HostTable::Added found = table.examine(key, name);
    if (found.outcome == HostTable::Outcome::conflict)
        fail(found.conflict);
}

// Two clients must not share a file, and neither may reach the other's root through its own.
void check_other_client(const Client &client, const BootparamsClient &other, RealPaths &real_paths) {
    for (const std::string key : {"root", "swap", "dump"}) {
        const std::string item = path_of_item(other.items, key);
        if (item.empty() || item.front() != '/')
            continue;
        const std::string theirs = real_paths.of(item);
        for (const std::string &ours : {client.root, client.swap, client.dump}) {
            if (ours == theirs)
                fail(ours + " is the " + key + " of " + other.name);
            if (key == "root" && !ours.empty() && is_at_or_below(ours, theirs))
                fail(ours + " lies in the root of " + other.name);
        }
        if (is_at_or_below(theirs, client.root))
            fail(client.root + " holds the " + key + " of " + other.name + ", " + theirs);
    }
}

void check_other_clients(const Client &client) {
    RealPaths real_paths;
    for (const BootparamsClient &other : client_entries()) {
        if (lower_case(other.name) != lower_case(client.hostname))
            check_other_client(client, other, real_paths);
        else if (other.name != client.hostname)
            fail(client.hostname + " is a client already, written " + other.name + " in /etc/bootparams");
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

// Whether bootparams has this client with this data already.
bool check_entry(const Client &client) {
    const std::string items = client_items(client.hostname);
    const struct {
        const char *key;
        const std::string &path;
    } wanted[] = {{"root", client.root}, {"swap", client.swap}, {"dump", client.dump}};
    bool whole = true;
    for (const auto &[key, path] : wanted) {
        const std::string there = item_of(items, key);
        const std::string ours = path.empty() ? "" : client.server + ":" + path;
        if (!there.empty() && !is_same_item(there, ours))
            fail(client.hostname + " is a client already, with " + key + "=" + there + " in /etc/bootparams" +
                 (ours.empty() ? "" : ", not " + ours) + "; remove it first (client/remove)");
        whole = whole && there.empty() == ours.empty();
    }
    return whole;
}

void check_root(const Client &client, bool known) {
    if (is_near_server_root(client.root))
        fail(client.root + " is too near to the root of this server; name a rootpath that lies deeper");
    for (const std::string &file : {client.swap, client.dump})
        if (!file.empty() && is_at_or_below(client.root, file))
            fail("the root " + client.root + " cannot lie at " + file + ", which is to be a file");
    if (!exists(client.root))
        return;
    if (fs::is_symlink(client.root))
        fail(client.root + " is a symbolic link; give the directory that it leads to as rootpath");
    if (!is_directory(client.root))
        fail(client.root + " is no directory");
    if (!known && !fs::is_empty(client.root))
        fail(client.root + " holds files already, and " + client.hostname +
             " does not boot from it; remove it or name another rootpath");
}

void check_source(Call &call, const Client &client) {
    std::vector<std::string> sources = client.packages;
    if (!client.tree.empty())
        sources.push_back(client.tree);
    for (const std::string &source : sources) {
        if (!is_directory(source))
            fail("there is no operating system at " + source + ": no such directory");
        const std::string there = fs::canonical(source);
        if (is_at_or_below(client.root, there) || is_at_or_below(there, client.root))
            fail("the root " + client.root + " and its source " + source + " lie in one another");
    }
    if (!client.tree.empty() && !is_tree(client.tree))
        fail(client.tree + " is no root file system: it holds neither etc nor usr");
    for (const std::string &directory : client.packages)
        if (!holds_packages(directory))
            fail(directory + " holds no packages (folders with a pkginfo file in them)");
    if (call.given("boot_program")) {
        if (std::error_code error; !fs::is_regular_file(call.get("boot_program"), error))
            fail("there is no boot program " + call.get("boot_program"));
    } else if (!exists(std::string(tftpboot) + "/" + client.boot_name)) {
        if (const std::string where = client.hierarchy.empty() ? client.tree : client.hierarchy;
            !where.empty())
            find_os(where, client.identity);
    }
}

// A client that has its root boots the system that is in it.
void check_boot_program(const Client &client, bool known) {
    if (!known || !exists(client.root))
        return;
    for (const BootLink &link : boot_links_of(client.address))
        if (!link.target.empty() && link.target != client.boot_name)
            fail(client.hostname + " is a client already and boots " + link.target + ", not " +
                 client.boot_name + "; remove it first (client/remove)");
}

// A swap file that is there already must be like the one that would be made.
void check_swap(const std::string &path, std::uint64_t size) {
    struct stat file {};
    if (lstat(path.c_str(), &file) != 0)
        return;
    if (!S_ISREG(file.st_mode))
        fail(path + " is no plain file");
    if (static_cast<std::uint64_t>(file.st_size) != size)
        fail(path + " has " + std::to_string(file.st_size) + " bytes already, not " + std::to_string(size) +
             "; give that swap_size or remove the file");
}

// A dump file may hold a dump by now.
void check_dump(const std::string &path) {
    if (std::error_code error; exists(path) && !fs::is_regular_file(fs::symlink_status(path, error)))
        fail(path + " is no plain file");
}

void check_tools() {
    if (geteuid() != 0)
        fail("only root may add a client");
    if (access("/usr/sbin/share", X_OK) != 0)
        fail("/usr/sbin/share, which shares directories, is missing; the adapters that come with hostadm "
             "bring it "
             "(cmake --install BUILD --component compat)");
}

// ---- the steps ----

class Steps {
public:
    Steps(Call &call, const Client &client, Journal &journal)
        : call_(call), client_(client), journal_(journal) {}

    void make_root(bool known);
    void make_file(const std::string &step, const std::string &path, std::uint64_t size);
    void share(const std::string &path);
    void boot();
    void bootparams();
    void table(const std::string &step, const HostTable &table, const std::string &key);
    void daemons();
    void warnings();
    // Only now: of a run that failed nothing stays that could be told.
    void tell() {
        for (const auto &row : rows_)
            call_.row(row);
    }

private:
    void report(const std::string &step, bool changed, const std::string &detail) {
        rows_.push_back({{"step", step}, {"result", changed ? "done" : "unchanged"}, {"detail", detail}});
    }
    void warn(const std::string &step, const std::string &detail) {
        rows_.push_back({{"step", step}, {"result", "warning"}, {"detail", detail}});
    }
    void make_directories(const std::string &path);
    void note_new_table(const std::string &path);
    bool ensure_boot_program();

    Call &call_;
    const Client &client_;
    Journal &journal_;
    std::vector<std::vector<std::pair<std::string, std::string>>> rows_;
};

void Steps::make_directories(const std::string &path) {
    std::vector<std::string> missing;
    for (std::string directory = path; directory != "/" && !exists(directory);
         directory = parent_of(directory))
        missing.push_back(directory);
    for (auto directory = missing.rbegin(); directory != missing.rend(); ++directory)
        journal_.note({"directory", *directory});
    // Another run may make, or take back, a directory above this one between two looks at it.
    constexpr int was_there = -3, tries = 5;
    int status = 0;
    for (int i = 0; i < tries; ++i) {
        std::string writable = path;
        status = mkdir_path(writable.data());
        if (status == 0 || status == was_there || (status == EEXIST && is_directory(path)))
            return;
        if (status != ENOENT)
            break;
    }
    fail("cannot make " + path + ": " + (status > 0 ? std::strerror(status) : "no such directory"));
}

void Steps::note_new_table(const std::string &path) {
    if (!exists(path))
        journal_.note({"table", path});
}

void Steps::make_root(bool known) {
    if (known && exists(client_.root) && !fs::is_empty(client_.root)) {
        report("root", false, client_.root);
        return;
    }
    struct stat before {};
    if (stat(client_.root.c_str(), &before) == 0) {
        journal_.note({"contents", client_.root, std::to_string(before.st_mode & 07777),
                       std::to_string(before.st_uid), std::to_string(before.st_gid)});
    } else {
        make_directories(parent_of(client_.root));
        journal_.note({"root", client_.root});
        make_directories(client_.root);
        before.st_mode = 0755;
    }
    // Or every copied directory would inherit its set-group-ID bit.
    if (chmod(client_.root.c_str(), before.st_mode & 01777) != 0)
        fail_errno("cannot set the mode of " + client_.root);
    int status = 0;
    const auto &[inst_set, impl_arch, os_name, os_version] = client_.identity;
    if (!client_.tree.empty() && !os_version.starts_with("4.")) {
        call_.progress("copying " + client_.tree + " to " + client_.root);
        status = copy_tree(call_, client_.tree, client_.root);
    } else if (!client_.tree.empty()) {
        call_.progress("copying " + client_.tree + " to " + client_.root);
        status = fill_root(call_, client_.root, os_name, os_version, {client_.tree});
    } else {
        call_.progress("installing packages in " + client_.root);
        status = fill_root(call_, client_.root, os_name, os_version, client_.packages);
    }
    if (status != 0)
        throw Recorded{};
    report("root", true, client_.root);
}

void Steps::make_file(const std::string &step, const std::string &path, std::uint64_t size) {
    if (exists(path)) {
        report(step, false, path);
        return;
    }
    call_.progress("making " + path);
    make_directories(parent_of(path));
    journal_.note({"file", path});
    // Only the client's root may touch it, which the share lets pass as root.
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor < 0)
        fail_errno("cannot make " + path);
    if (ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
        const int why = errno;
        close(descriptor);
        errno = why;
        fail_errno("cannot make " + path + " " + std::to_string(size) + " bytes long");
    }
    close(descriptor);
    report(step, true, path);
}

void Steps::share(const std::string &path) {
    const std::string options = client_.share_options();
    const auto shares = current_shares();
    const auto now = shares.find(path);
    bool in_table = false;
    for (const TableShare &line : table_shares()) {
        if (line.path != path || line.failed)
            continue;
        if (line.options != options)
            fail(path + " is in /etc/dfs/dfstab already, with " + line.options + " and not " + options +
                 "; unshare it first (filesystem/unshare)");
        in_table = true;
    }
    if (now != shares.end() && now->second != options)
        fail(path + " is shared already, with " + now->second + " and not " + options +
             "; unshare it first (filesystem/unshare)");
    if (now != shares.end() && in_table) {
        report("share", false, path + " " + options);
        return;
    }
    call_.progress("sharing " + path);
    note_new_table("/etc/dfs/dfstab");
    if (now == shares.end() && !in_table)
        journal_.note({"share", path});
    const std::string method = call_.method();
    if (sharefs(nullptr, options.c_str(), nullptr, path.c_str(), nullptr, method.c_str(), 0) != 0)
        throw Recorded{};
    report("share", true, path + " " + options);
}

// Copies the boot program as a whole or not at all: half of one would be taken for whole for ever.
bool Steps::ensure_boot_program() {
    const std::string program = std::string(tftpboot) + "/" + client_.boot_name;
    if (exists(program))
        return false;
    const auto &[inst_set, impl_arch, os_name, os_version] = client_.identity;
    std::string source = call_.get("boot_program");
    if (source.empty()) {
        const std::string &hierarchy = !client_.hierarchy.empty() ? client_.hierarchy
                                       : !client_.tree.empty()    ? client_.tree
                                                                  : client_.root;
        const std::string host = local_host_name();
        char *found = install_bootprog_location(call_.method().c_str(), host.c_str(), hierarchy.c_str(),
                                                inst_set.c_str(), impl_arch.c_str(), os_name.c_str(),
                                                os_version.c_str());
        source = found == nullptr ? "" : found;
        std::free(found);
    }
    const std::string fresh = std::string(tftpboot) + "/." + client_.hostname + ".new";
    journal_.note({"file", fresh});
    journal_.note({"program", program});
    std::error_code error;
    if (copyfile(fresh.c_str(), source.c_str()) != 0 || chmod(fresh.c_str(), 0644) != 0)
        fail("cannot copy the boot program " + source + " to " + tftpboot);
    fs::rename(fresh, program, error);
    if (error)
        fail("cannot put " + program + " in place: " + error.message());
    return true;
}

void Steps::boot() {
    const std::string method = call_.method();
    const std::string digits = address_digits(client_.address);
    const auto &[inst_set, impl_arch, os_name, os_version] = client_.identity;
    call_.progress("making the boot program and its links");
    make_tftpboot_dir(method.c_str());
    const BootAreaLock lock;

    report("boot program", ensure_boot_program(), std::string(tftpboot) + "/" + client_.boot_name);
    call_.set("boot_program", client_.boot_name);

    std::string architecture = impl_arch; // becomes upper case
    const std::string named = digits + "." + upper_case(impl_arch);
    const BootLinks there = boot_links_of(client_.address);
    if (there.size() == 2 && there[0].name == digits && there[1].name == named &&
        there[0].target == client_.boot_name && there[1].target == client_.boot_name) {
        report("boot links", false, digits + ", " + named);
        return;
    }
    for (const BootLink &old : there) {
        if (old.target.empty())
            fail(std::string(tftpboot) + "/" + old.name + " is no link; remove it first");
        journal_.note({"oldlink", old.name, old.target});
    }
    journal_.note({"links", digits, named});
    {
        const SilencedErrors silence; // "rm" finds nothing to remove; what matters is looked at below
        add_tftpboot_dir_client(method.c_str(), client_.boot_name.c_str(), client_.address.c_str(),
                                architecture.data());
    }
    if (boot_links_state(digits, boot_links_of(client_.address)) != "yes")
        fail("the links of " + client_.address + " in " + tftpboot + " do not lead to a boot program");
    report("boot links", true, digits + ", " + named);
}

void Steps::bootparams() {
    call_.progress(std::string("editing ") + bootparams_path);
    note_new_table(bootparams_path);
    const std::string before = client_items(client_.hostname);
    std::vector<BootparamsItem> missing;
    for (const auto &[key, path] :
         {std::pair("root", client_.root), {"swap", client_.swap}, {"dump", client_.dump}})
        if (!path.empty() && item_of(before, key).empty())
            missing.push_back({key, client_.server, path});
    for (const BootparamsItem &item : missing)
        journal_.note({"item", client_.hostname, item.key});
    const bool changed = !missing.empty() && set_client_items(client_.hostname, missing);
    report("bootparams", changed, client_.hostname + " " + client_items(client_.hostname));
}

void Steps::table(const std::string &step, const HostTable &table, const std::string &key) {
    call_.progress("editing " + table.path());
    note_new_table(table.path());
    if (table.examine(key, client_.hostname).outcome == HostTable::Outcome::added)
        journal_.note({"line", table.path(), key, client_.hostname});
    const HostTable::Added added = table.add(key, client_.hostname);
    if (added.outcome == HostTable::Outcome::conflict)
        fail(added.conflict);
    report(step, added.outcome == HostTable::Outcome::added, key + " " + client_.hostname);
}

// A server whose daemons do not run is set up all the same: what is missing is told, with the way to mend it.
void Steps::daemons() {
    constexpr const char *rarpd = "/usr/sbin/in.rarpd";
    const auto serves_rarp = [] { return boot_daemons().front().running; };
    if (check_rarpd(nullptr) != HOSTADM_DAEMON_RUNNING && !serves_rarp() && access(rarpd, X_OK) == 0) {
        call_.progress(std::string("starting ") + rarpd);
        start_daemon(rarpd, nullptr);
        constexpr int tries = 50; // of 10 ms; it needs a few
        for (int i = 0; i < tries && check_rarpd(nullptr) != HOSTADM_DAEMON_RUNNING; ++i)
            usleep(10'000);
        if (check_rarpd(nullptr) == HOSTADM_DAEMON_RUNNING)
            report("reverse ARP", true, std::string(rarpd) + " -a");
    }
    for (const BootDaemon &daemon : boot_daemons()) {
        if (!daemon.running)
            warn(daemon.service, daemon.name + " does not run; start it: " + daemon.advice);
        else if (!daemon.advice.empty())
            warn(daemon.service, daemon.name + " runs " + daemon.note + "; " + daemon.advice);
    }
}

void Steps::warnings() {
    const std::string told = address_of_host(client_.server);
    if (told.empty())
        warn("server",
             "the name " + client_.server +
                 " has no address here, so the client cannot be told where its root is; add a line to "
                 "/etc/hosts, or give another server name");
    else if (told.starts_with("127."))
        warn("server",
             client_.server + " has the address " + told +
                 " here, which the client would be told and cannot reach; give it this server's real "
                 "address in /etc/hosts, or give another server name");
    else if (!is_own_address(told))
        warn("server", client_.server + " has the address " + told +
                           " here, which is none of this server's own; the client would look for its root "
                           "there");
    if (!is_in_own_network(client_.address))
        warn("address", "no interface of this server is in the network of " + client_.address +
                            ", so reverse ARP and broadcasts from there will not be answered");
}

int provision(Call &call, Journal &journal) {
    check_tools();
    const Client client = read_client(call);
    check_addresses(client);
    check_table(hosts_table(), client.address, client.hostname);
    check_table(ethers_table(), client.ethernet, client.hostname);
    check_other_clients(client);
    const bool known = check_entry(client);
    check_root(client, known);
    if (!known || !exists(client.root))
        check_source(call, client);
    check_boot_program(client, known);
    check_swap(client.swap, client.swap_size);
    check_dump(client.dump);

    Steps steps(call, client, journal);
    steps.make_root(known);
    check_swap(client.swap, client.swap_size); // which may have come with the root
    steps.make_file("swap", client.swap, client.swap_size);
    check_dump(client.dump);
    if (!client.dump.empty())
        steps.make_file("dump", client.dump, 0);
    std::vector<std::string> shared = {client.root};
    for (const std::string &file : {client.swap, client.dump}) {
        const std::string path = file.empty() ? client.root : share_path_of(file, client.hostname);
        if (!is_at_or_below(path, client.root) && path != shared.back())
            shared.push_back(path);
    }
    for (const std::string &path : shared)
        steps.share(path);
    steps.boot();
    steps.bootparams();
    steps.table("hosts", hosts_table(), client.address);
    steps.table("ethers", ethers_table(), client.ethernet);
    steps.daemons();
    steps.warnings();
    call.set("pathname", client.root); // the last share told its own
    steps.tell();
    return 0;
}

// ---- taking back ----

// Each returns what had to stay, in words, or nothing. What is gone already is no matter.
class Undo {
public:
    explicit Undo(Call &call) : call_(call) {}

    std::string take_back(const std::vector<std::string> &entry);

private:
    std::string remove_file(const std::string &path);
    std::string remove_directory(const std::string &path);
    std::string empty_root(const std::vector<std::string> &entry);
    std::string unshare(const std::string &path);
    std::string remove_links(const std::vector<std::string> &names);
    std::string remove_program(const std::string &path);
    std::string restore_link(const std::string &name, const std::string &target);
    std::string remove_item(const std::string &client, const std::string &key);
    std::string remove_empty_table(const std::string &path);

    Call &call_;
};

std::string complaint(const std::string &what) {
    return what + " (" + std::strerror(errno) + ")";
}

// What was announced but never came to be leaves nothing to remove, nor perhaps a directory above it. A
// read-only file system refuses to remove even that, so it is looked for first.
bool is_absent(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

std::string Undo::remove_file(const std::string &path) {
    return is_absent(path) || unlink(path.c_str()) == 0 || errno == ENOENT ? "" : complaint(path);
}

std::string Undo::remove_directory(const std::string &path) {
    if (is_absent(path) || rmdir(path.c_str()) == 0 || errno == ENOENT)
        return "";
    // Meanwhile somebody else keeps something there.
    return errno == ENOTEMPTY || errno == EEXIST ? "" : complaint(path);
}

std::string Undo::empty_root(const std::vector<std::string> &entry) {
    const std::string &path = entry[1];
    std::error_code error;
    for (fs::directory_iterator child(path, error), end; !error && child != end; child.increment(error))
        fs::remove_all(child->path(), error);
    if (error)
        return "files in " + path + " (" + error.message() + ")";
    const bool restored = chown(path.c_str(), static_cast<uid_t>(std::stoul(entry[3])),
                                static_cast<gid_t>(std::stoul(entry[4]))) == 0 &&
                          chmod(path.c_str(), static_cast<mode_t>(std::stoul(entry[2]))) == 0;
    return restored ? "" : complaint("the owner and mode of " + path);
}

std::string Undo::unshare(const std::string &path) {
    const bool shared = current_shares().count(path) != 0;
    bool in_table = false;
    for (const TableShare &line : table_shares())
        in_table = in_table || line.path == path;
    if (!shared && !in_table)
        return "";
    return unsharefs(nullptr, path.c_str(), nullptr, nullptr, call_.method().c_str()) == 0
               ? ""
               : "the share of " + path;
}

std::string Undo::remove_links(const std::vector<std::string> &names) {
    std::string left;
    for (std::size_t i = 1; i < names.size(); ++i)
        if (const std::string path = std::string(tftpboot) + "/" + names[i]; !remove_file(path).empty())
            left = path;
    return left;
}

std::string Undo::remove_program(const std::string &path) {
    const BootAreaLock lock;
    const std::string name = fs::path(path).filename();
    for (const auto &[digits, links] : all_boot_links())
        for (const BootLink &link : links)
            if (link.target == name)
                return ""; // another client boots from it by now
    return remove_file(path);
}

std::string Undo::restore_link(const std::string &name, const std::string &target) {
    const std::string path = std::string(tftpboot) + "/" + name;
    return symlink(target.c_str(), path.c_str()) == 0 || errno == EEXIST
               ? ""
               : complaint("without its link " + path);
}

std::string Undo::remove_item(const std::string &client, const std::string &key) {
    remove_client_items(client, {key});
    return "";
}

std::string Undo::remove_empty_table(const std::string &path) {
    // With the lock that editors of the table take, so that nobody's first line goes with it.
    const int folder = open(parent_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat file {};
    std::string left;
    if (folder >= 0 && flock(folder, LOCK_EX) == 0 && stat(path.c_str(), &file) == 0 && file.st_size == 0)
        left = remove_file(path);
    close(folder);
    return left;
}

std::string Undo::take_back(const std::vector<std::string> &entry) try {
    const std::string &kind = entry.front();
    const std::string &what = entry.at(1);
    if (kind == "directory")
        return remove_directory(what);
    if (kind == "root") {
        if (exists(what))
            remove_tree(what);
        return "";
    }
    if (kind == "contents")
        return empty_root(entry);
    if (kind == "file")
        return remove_file(what);
    if (kind == "share")
        return unshare(what);
    if (kind == "links")
        return remove_links(entry);
    if (kind == "oldlink")
        return restore_link(what, entry.at(2));
    if (kind == "program")
        return remove_program(what);
    if (kind == "item")
        return remove_item(what, entry.at(2));
    if (kind == "line") {
        (what == hosts_table().path() ? hosts_table() : ethers_table()).remove(entry.at(3), entry.at(2));
        return "";
    }
    return kind == "table" ? remove_empty_table(what) : "";
} catch (const std::exception &failure) {
    return failure.what();
}

int work(Call &call) {
    const ClientLock lock(call.get("hostname")); // until all is done, or taken back
    Journal journal;
    const Ending ending = run_apart([&] {
        try {
            return provision(call, journal);
        } catch (const Recorded &) {
            return 1;
        } catch (const std::exception &failure) {
            return call.fail(failure.what());
        }
    });
    if (ending.done)
        return 0;
    if (!ending.reason.empty())
        call.fail(ending.reason);
    Undo undo(call);
    take_back(call, journal, [&](const auto &entry) { return undo.take_back(entry); });
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
