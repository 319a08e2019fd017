// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/mount_tables.hpp"
#include "server/named_table.hpp"
#include "server/page.hpp"
#include "server/watched_commands.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/mount",
    .purpose = "mount a file system now, at boot, or both",
    .arguments =
        {{.name = "resource",
          .kind = Kind::device,
          .purpose = "what to mount: a device, or HOST:/PATH for NFS",
          .required = true},
         {.name = "mountpt", .kind = Kind::path, .purpose = "directory to mount it on", .required = true},
         {.name = "fstype", .kind = Kind::word, .purpose = "file system type", .default_value = "ufs"},
         {.name = "fsckdev",
          .kind = Kind::device,
          .purpose = "device to check before mounting, \"-\" for none; needed for every type but nfs"},
         {.name = "fsckpass",
          .kind = Kind::word,
          .purpose = "when it is checked at boot: a number, \"-\" for never (2; - for nfs)"},
         {.name = "mountatboot",
          .kind = Kind::yes_no,
          .purpose = "whether booting mounts it",
          .default_value = "yes"},
         {.name = "mntopts", .kind = Kind::options, .purpose = "mount options (rw; bg,hard,rw for nfs)"},
         {.name = "takeeffect",
          .kind = Kind::choice,
          .purpose = "nowonly mounts, bootonly writes the table of mounts, nowandboot does both",
          .default_value = "nowandboot",
          .choices = {"nowonly", "bootonly", "nowandboot"}},
         {.name = "vfstab",
          .kind = Kind::path,
          .purpose = "the table of mounts; a line for the same resource is replaced",
          .default_value = "/etc/vfstab"}},
    .outputs = {changed_output},
    .edits = {"vfstab=", "mountpt="},
    .values = {{"resource", "filesystem/list_mount_entries", "resource"},
               {"mountpt", "filesystem/list_mount_entries", "mountpt"}},
};

bool is_pass(const std::string &text) {
    return text == "-" || std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A table that is missing is made, and its folder with it,
// but nothing above. What the mount brings is not there yet.
bool has_no_place(const std::filesystem::path &table, const std::string &mountpt) {
    if (table.string().starts_with(mountpt + "/"))
        return false;
    std::error_code failure;
    const auto above = table.parent_path().parent_path();
    return std::filesystem::status(above, failure).type() == std::filesystem::file_type::not_found;
}

// What is left to do when part of it, or all, is so already.
std::string effect_left(const Call &call) {
    const std::string effect = call.get("takeeffect"), resource = call.get("resource"),
                      point = call.get("mountpt");
    if (effect == "bootonly" || !is_mounted_so(resource, point, call.get("mntopts")))
        return effect;
    return effect == "nowonly" ? "" : "bootonly";
}

int work(Call &call) {
    if (!is_pass(call.get("fsckpass")))
        return call.refuse(hostadm::base::tr("the argument fsckpass is a number, or \"-\" for never"));
    if (call.get("resource") == "-")
        return call.refuse(
            hostadm::base::tr("the argument resource cannot be \"-\"; name a device, or HOST:/PATH"));
    if (call.get("fstype") != "nfs" && !call.given("fsckdev"))
        return call.refuse(hostadm::base::tr(
            "the argument fsckdev is missing: name the device to check, or give fsckdev=- for none"));
    const std::string effect = effect_left(call);
    if (effect.empty()) {
        tell_changed(call, false);
        return 0;
    }
    const bool now = effect != "bootonly", at_boot = effect != "nowonly";
    const std::string resource = call.get("resource"), point = call.get("mountpt"),
                      table = call.get("vfstab");
    if (now)
        require_command("/usr/sbin/mount", hostadm::base::tr("mounts file systems"));
    if (at_boot && has_no_place(table, point))
        fail_edit(table, -ENOENT);
    const std::string before = read_mount_table(table);
    const WatchedCommands commands;
    const int status =
        operate_on_named_table(table, effect, [&](const std::string &when, const std::string &path) {
            return mount_filesystem(resource.c_str(), call.get("fsckdev").c_str(), point.c_str(),
                                    call.get("fstype").c_str(), call.get("fsckpass").c_str(),
                                    call.get("mountatboot").c_str(), call.get("mntopts").c_str(),
                                    when.c_str(), path.c_str(), call.method().c_str());
        });
    if (status != 0)
        return status;
    // The library takes silence for success, also that of a command that was killed.
    if (now && commands.any_was_killed() && !is_mount_point(point))
        fail(Code::no_effect,
             hostadm::base::tr("{1} is not mounted on {2}: /usr/sbin/mount ended without a word and "
                               "without effect; was it killed?",
                               resource, point));
    const std::string after = read_mount_table(table);
    if (at_boot && !has_mount_line(after, resource, ""))
        fail(Code::no_effect,
             hostadm::base::tr("{1} has no line for {2}, although it was written there", table, resource));
    tell_changed(call, now || after != before);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
