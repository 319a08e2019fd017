// SPDX-License-Identifier: MIT
// Sets a line of a mount table. Nothing is mounted.
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "base/beneath.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "hostadm/table_edit.hpp"
#include "server/client_root.hpp"
#include "server/failure.hpp"
#include "server/mount_tables.hpp"
#include "server/page.hpp"

using namespace hostadm::method;
using namespace hostadm::server;

namespace {

const Description description{
    .name = "filesystem/add_mount_entry",
    .purpose = "add a line to a mount table, or replace the line of the same device; nothing is mounted",
    .arguments =
        {{.name = "resource",
          .kind = Kind::device,
          .purpose = "what to mount: a device or HOST:/PATH",
          .required = true},
         {.name = "fsckdev", .kind = Kind::device, .purpose = "the device to check (seven columns only)"},
         {.name = "mountpt", .kind = Kind::path, .purpose = "the mount point"},
         {.name = "fstype", .kind = Kind::word, .purpose = "the file system's type"},
         {.name = "fsckpass", .kind = Kind::number, .purpose = "in which pass it is checked"},
         {.name = "mountatboot", .kind = Kind::yes_no, .purpose = "mount it at boot? (seven columns only)"},
         {.name = "mntopts", .kind = Kind::options, .purpose = "mount options"},
         {.name = "freq", .kind = Kind::number, .purpose = "days between dumps (six columns only)"},
         {.name = "layout",
          .kind = Kind::choice,
          .purpose = "seven columns, or the six of a 4.x release: resource, mountpt, fstype, mntopts, "
                     "freq, fsckpass",
          .default_value = "vfstab",
          .choices = {"vfstab", "4x"}},
         {.name = "vfstab",
          .kind = Kind::path,
          .purpose = "the table, for instance that of a client's root",
          .default_value = "/etc/vfstab"}},
    .outputs = {changed_output},
    .edits = {"vfstab="},
};

int add_seven_columns(const Call &call, const std::string &table, char *resource) {
    return mntadd(table.c_str(), resource, call.get("fsckdev").c_str(), call.get("mountpt").c_str(),
                  call.get("fstype").c_str(), call.get("fsckpass").c_str(), call.get("mountatboot").c_str(),
                  call.get("mntopts").c_str());
}

int add_six_columns(const Call &call, const std::string &table, char *resource) {
    return mntadd4x(table.c_str(), resource, call.get("mountpt").c_str(), call.get("fstype").c_str(),
                    call.get("mntopts").c_str(), call.get("freq").c_str(), call.get("fsckpass").c_str());
}

// Only what lies in the server's own /etc is sure to be nobody else's: a client may lay links about its table. So
// the edit is made on a copy, which then takes the table's place.
bool is_servers_own(const std::string &table) {
    return std::filesystem::path(table).lexically_normal().parent_path() == "/etc";
}

int edit_own(const std::string &table, const std::function<int(const std::string &)> &add, bool &changed) {
    const std::string before = read_mount_table(table);
    const int status = add(table);
    changed = read_mount_table(table) != before;
    return status;
}

int edit_of_others(const std::string &table, const std::function<int(const std::string &)> &add,
                   bool &changed) try {
    const std::string name = std::filesystem::path(table).filename();
    const hostadm::base::Beneath folder = folder_that_holds(table);
    const hostadm::tables::FolderLock lock(folder.path());
    if (lock.status() != 0)
        return lock.status();
    const bool is_there = folder.status(name).has_value();
    const std::string before = is_there ? folder.read(name) : "";
    std::string after = before;
    if (const int status = edit_mount_table_copy(after, add); status != 0)
        return status;
    changed = !is_there || after != before;
    if (!is_there)
        folder.write(name, after);
    else if (after != before)
        folder.rewrite(name, after);
    return 0;
} catch (const hostadm::base::BeneathError &failure) {
    switch (failure.error()) {
    case ENOENT:
    case ENOSPC:
    case EACCES:
    case EROFS:
        return -failure.error();
    default:
        throw;
    }
}

int work(Call &call) {
    if (call.get("resource") == "-")
        return call.refuse("the argument resource cannot be \"-\"; name a device, or HOST:/PATH");
    const bool six_columns = call.get("layout") == "4x";
    if (six_columns && (call.given("fsckdev") || call.given("mountatboot")))
        return call.refuse("a 4.x mount table has no columns fsckdev and mountatboot; leave them out");
    if (!six_columns && call.given("freq"))
        return call.refuse("freq is a column of layout=4x only; leave it out");
    const auto add = [&](const std::string &table) {
        std::string resource = call.get("resource");
        return six_columns ? add_six_columns(call, table, resource.data())
                           : add_seven_columns(call, table, resource.data());
    };
    const std::string table = call.get("vfstab");
    bool changed = false;
    const int status =
        is_servers_own(table) ? edit_own(table, add, changed) : edit_of_others(table, add, changed);
    if (status != 0)
        fail_edit(table, status);
    tell_changed(call, changed);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
