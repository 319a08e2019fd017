// SPDX-License-Identifier: MIT
#include "methods/client/add_diskless/undo.hpp"

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "hostadm.h"
#include "hostadm/table_edit.hpp"
#include "methods/client/add_diskless/boot_area_lock.hpp"
#include "methods/client/add_diskless/paths.hpp"
#include "server/boot_links.hpp"
#include "server/client_entry.hpp"
#include "server/clients.hpp"
#include "server/host_tables.hpp"
#include "server/roots.hpp"

namespace hostadm::diskless {

using namespace hostadm::method;
using namespace hostadm::server;
namespace fs = std::filesystem;

namespace {

std::string complaint(const std::string &what) {
    return what + " (" + std::strerror(errno) + ")";
}

// What was announced but never came to be leaves nothing to remove, nor perhaps a directory above it. A
// read-only file system refuses to remove even that, so it is looked for first.
bool is_absent(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

std::string remove_file(const std::string &path) {
    return is_absent(path) || unlink(path.c_str()) == 0 || errno == ENOENT ? "" : complaint(path);
}

std::string remove_directory(const std::string &path) {
    if (is_absent(path) || rmdir(path.c_str()) == 0 || errno == ENOENT)
        return "";
    // Meanwhile somebody else keeps something there.
    return errno == ENOTEMPTY || errno == EEXIST ? "" : complaint(path);
}

std::string empty_root(const std::vector<std::string> &entry) {
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

std::string unshare(const Call &call, const std::string &path) {
    const bool shared = current_shares().count(path) != 0;
    bool in_table = false;
    for (const TableShare &line : table_shares())
        in_table = in_table || line.path == path;
    if (!shared && !in_table)
        return "";
    return unsharefs(nullptr, path.c_str(), nullptr, nullptr, call.method().c_str()) == 0
               ? ""
               : "the share of " + path;
}

std::string remove_links(const std::vector<std::string> &names) {
    std::string left;
    for (std::size_t i = 1; i < names.size(); ++i)
        if (const std::string path = std::string(tftpboot) + "/" + names[i]; !remove_file(path).empty())
            left = path;
    return left;
}

std::string remove_program(const std::string &path) {
    const BootAreaLock lock;
    const std::string name = fs::path(path).filename();
    for (const auto &[digits, links] : all_boot_links())
        for (const BootLink &link : links)
            if (link.target == name)
                return ""; // another client boots from it by now
    return remove_file(path);
}

std::string restore_link(const std::string &name, const std::string &target) {
    const std::string path = std::string(tftpboot) + "/" + name;
    return symlink(target.c_str(), path.c_str()) == 0 || errno == EEXIST
               ? ""
               : complaint("without its link " + path);
}

std::string remove_item(const std::string &client, const std::string &key) {
    remove_client_items(client, {key});
    return "";
}

std::string remove_empty_table(const std::string &path) {
    // With the lock that editors of the table take, so that nobody's first line goes with it.
    const tables::FolderLock lock(parent_of(path));
    struct stat file {};
    if (stat(path.c_str(), &file) != 0 || file.st_size != 0)
        return "";
    return lock.status() == 0 ? remove_file(path) : "the empty table " + path + " (its folder is locked)";
}

} // namespace

std::string undo(const Call &call, const std::vector<std::string> &entry) try {
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
        return unshare(call, what);
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

} // namespace hostadm::diskless
