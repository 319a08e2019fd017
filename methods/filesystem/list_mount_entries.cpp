// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/mount_tables.hpp"
#include "server/named_table.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/list_mount_entries",
    .purpose = "list the lines of a mount table",
    .arguments = {mount_layout_argument,
                  {.name = "vfstab",
                   .kind = Kind::path,
                   .purpose = "the table, for instance that of a client's root",
                   .default_value = mount_table}},
    .columns = {{"resource", "what is mounted: a device, or HOST:/PATH"},
                {"fsckdev", "the device that is checked (seven columns only)"},
                {"mountpt", "the mount point"},
                {"fstype", "the file system's type"},
                {"fsckpass", "in which pass it is checked"},
                {"mountatboot", "is it mounted at boot? (seven columns only)"},
                {"mntopts", "mount options"},
                {"freq", "days between dumps (six columns only)"}},
};

int work(Call &call) {
    const std::string table = call.get("vfstab");
    ManyRows rows;
    for (const MountLine &line : mount_lines(read_named_table(table), mount_layout(call, table)))
        if (mount_layout(call, table) == MountLayout::six_columns)
            rows.add({{"resource", line.resource},
                      {"mountpt", line.mount_point},
                      {"fstype", line.type},
                      {"mntopts", line.options},
                      {"freq", line.freq},
                      {"fsckpass", line.pass}});
        else
            rows.add({{"resource", line.resource},
                      {"fsckdev", line.fsckdev},
                      {"mountpt", line.mount_point},
                      {"fstype", line.type},
                      {"fsckpass", line.pass},
                      {"mountatboot", line.at_boot},
                      {"mntopts", line.options}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
