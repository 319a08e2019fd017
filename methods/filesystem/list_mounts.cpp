// SPDX-License-Identifier: MIT
#include "base/mounts.hpp"
#include "hostadm/method.hpp"
#include "server/mount_tables.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/list_mounts",
    .purpose = "list what is mounted now",
    .arguments = {{.name = "system",
                   .kind = Kind::yes_no,
                   .purpose = "list the root too, and what the system itself has at or below /proc, /sys, "
                              "/dev and /run",
                   .default_value = "no"}},
    .columns = {{"resource", "what is mounted: a device, or HOST:/PATH"},
                {"mountpt", "the directory that it is mounted on"},
                {"fstype", "the file system's type"},
                {"access", "rw, or ro where nothing can be written"}},
};

int work(Call &call) {
    ManyRows rows;
    for (const hostadm::base::Mount &mount :
         mounts_now(call.get("system") == "yes" ? SystemMounts::listed : SystemMounts::left_out))
        rows.add(
            {{"resource", hostadm::base::shown_source(mount)},
             {"mountpt", mount.point},
             {"fstype", hostadm::base::shown_type(mount)},
             {"access", hostadm::base::has_option(hostadm::base::all_options(mount), "ro") ? "ro" : "rw"}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
