// SPDX-License-Identifier: MIT
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
    .name = "filesystem/unmount",
    .purpose = "unmount a file system now, at boot, or both",
    .arguments = {{.name = "mountpt",
                   .kind = Kind::path,
                   .purpose = "directory that it is mounted on",
                   .required = true},
                  {.name = "takeeffect",
                   .kind = Kind::choice,
                   .purpose =
                       "nowonly unmounts, bootonly removes the line from the table of mounts, nowandboot "
                       "does both",
                   .default_value = "nowandboot",
                   .choices = {"nowonly", "bootonly", "nowandboot"}},
                  {.name = "vfstab",
                   .kind = Kind::path,
                   .purpose = "the table of mounts",
                   .default_value = "/etc/vfstab"}},
    .outputs = {changed_output},
    .edits = {"vfstab="},
    .values = {{"mountpt", "filesystem/list_mounts", "mountpt"},
               {"mountpt", "filesystem/list_mount_entries", "mountpt"}},
};

int work(Call &call) {
    constexpr int table_unchanged = 38;
    const std::string point = call.get("mountpt"), table = call.get("vfstab");
    std::string effect = call.get("takeeffect");
    if (effect != "bootonly")
        require_command("/usr/sbin/umount", hostadm::base::tr("unmounts file systems"));
    const bool is_mounted = is_mount_point(point),
               has_line = has_mount_line(read_mount_table(table), "", point);
    if ((effect == "bootonly" || !is_mounted) && (effect == "nowonly" || !has_line)) {
        tell_changed(call, false);
        return 0;
    }
    // The library takes a line that is missing for a failure.
    if (effect == "nowandboot" && !has_line)
        effect = "nowonly";
    const bool now = effect != "bootonly", at_boot = effect != "nowonly";
    const WatchedCommands commands;
    const int status =
        operate_on_named_table(table, effect, [&](const std::string &when, const std::string &path) {
            return unmount_filesystem(point.c_str(), when.c_str(), path.c_str(), call.method().c_str());
        });
    if (status == table_unchanged && now)
        call.left_undone(hostadm::base::tr("{1} has been unmounted; {2} is as it was", point, table));
    if (status != 0)
        return status;
    // The library takes silence for success, also that of a command that was killed.
    if (now && commands.any_was_killed() && is_mount_point(point))
        fail(Code::no_effect,
             hostadm::base::tr("{1} is still mounted: /usr/sbin/umount ended without a word and "
                               "without effect; was it killed?",
                               point));
    if (at_boot && has_mount_line(read_mount_table(table), "", point))
        fail(Code::no_effect,
             hostadm::base::tr("{1} still has a line for {2}, although it was removed", table, point));
    tell_changed(call, true);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
