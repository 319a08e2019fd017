// SPDX-License-Identifier: MIT
// Sets a line of a mount table. Nothing is mounted.
#include <string>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/mount_tables.hpp"
#include "server/named_table.hpp"
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
         mount_layout_argument,
         {.name = "vfstab",
          .kind = Kind::path,
          .purpose = "the table, for instance that of a client's root",
          .default_value = mount_table}},
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

int work(Call &call) {
    if (call.get("resource") == "-")
        return call.refuse(
            hostadm::base::tr("the argument resource cannot be \"-\"; name a device, or HOST:/PATH"));
    const std::string table = call.get("vfstab");
    const bool six_columns = mount_layout(call, table) == MountLayout::six_columns;
    if (six_columns && (call.given("fsckdev") || call.given("mountatboot")))
        return call.refuse(hostadm::base::tr(
            "a table of six columns has no columns fsckdev and mountatboot; leave them out"));
    if (!six_columns && call.given("freq"))
        return call.refuse(hostadm::base::tr("freq is a column of layout=fstab only; leave it out"));
    tell_changed(call, edit_named_table(table, [&](const std::string &path) {
                     std::string resource = call.get("resource");
                     return six_columns ? add_six_columns(call, path, resource.data())
                                        : add_seven_columns(call, path, resource.data());
                 }));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
