// SPDX-License-Identifier: MIT
#include "methods/client/add_diskless/steps.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "hostadm.h"
#include "methods/client/add_diskless/boot_area_lock.hpp"
#include "methods/client/add_diskless/failure.hpp"
#include "methods/client/add_diskless/paths.hpp"
#include "server/boot_daemons.hpp"
#include "server/boot_links.hpp"
#include "server/client_entry.hpp"
#include "server/client_lock.hpp"
#include "server/clients.hpp"
#include "server/hierarchy.hpp"
#include "server/local_host.hpp"
#include "server/roots.hpp"

namespace hostadm::diskless {

using namespace hostadm::method;
using namespace hostadm::server;
namespace fs = std::filesystem;

namespace {

std::string upper_case(std::string text) {
    for (char &c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool differ(const std::string &one, const std::string &other) {
    std::ifstream first(one, std::ios::binary), second(other, std::ios::binary);
    std::istreambuf_iterator<char> byte(first), end;
    return !std::equal(byte, end, std::istreambuf_iterator<char>(second), end);
}

} // namespace

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
    if (exists(program)) {
        if (call_.given("boot_program") && differ(program, call_.get("boot_program")))
            warn("boot program",
                 program + " differs from " + call_.get("boot_program") +
                     " and stays, since other clients may boot it; to replace it, remove it first");
        return false;
    }
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
    const auto in_place = [&](const BootLinks &links) {
        return lead_to(links, digits, upper_case(impl_arch), client_.boot_name);
    };
    const BootLinks there = boot_links_of(client_.address);
    if (in_place(there)) {
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
    // An old link that could not be removed stays, and counts as made.
    if (!in_place(boot_links_of(client_.address)))
        fail("the links of " + client_.address + " in " + tftpboot + " do not lead to " + client_.boot_name);
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
        for (int i = 0; i < tries && !serves_rarp(); ++i)
            usleep(10'000);
        if (serves_rarp())
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

} // namespace hostadm::diskless
