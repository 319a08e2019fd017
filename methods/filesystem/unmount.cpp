// SPDX-License-Identifier: MIT
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"

namespace {

using namespace hostadm::method;

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
    .edits = {"vfstab="},
};

int work(Call &call) {
    constexpr int table_unchanged = 38;
    const std::string point = call.get("mountpt"), effect = call.get("takeeffect"),
                      table = call.get("vfstab");
    if (effect != "bootonly")
        if (const std::string missing =
                hostadm::server::missing_command("/usr/sbin/umount", "unmounts file systems");
            !missing.empty())
            return call.fail(missing);
    const int status =
        unmount_filesystem(point.c_str(), effect.c_str(), table.c_str(), call.method().c_str());
    if (status == table_unchanged && effect != "bootonly")
        call.left_undone(point + " has been unmounted; " + table + " is as it was");
    return status;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
