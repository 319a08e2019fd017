// SPDX-License-Identifier: MIT
// Removes a line of a mount table. Nothing is unmounted.
#include <string>
#include <vector>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/mount_tables.hpp"
#include "server/named_table.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/remove_mount_entry",
    .purpose = "remove a line of a mount table; nothing is unmounted",
    .arguments = {{.name = "resource",
                   .kind = Kind::device,
                   .purpose = "the line of this device or HOST:/PATH"},
                  {.name = "mountpt", .kind = Kind::path, .purpose = "the line of this mount point"},
                  mount_layout_argument,
                  {.name = "vfstab",
                   .kind = Kind::path,
                   .purpose = "the table, for instance that of a client's root",
                   .default_value = mount_table}},
    .outputs = {changed_output},
    .edits = {"vfstab="},
    .values = {{"resource", "filesystem/list_mount_entries", "resource"},
               {"mountpt", "filesystem/list_mount_entries", "mountpt"}},
};

// A device may stand in a table many times, such as that of temporary file systems.
void check_unique(const std::vector<MountLine> &lines, const std::string &table) {
    if (lines.size() < 2)
        return;
    std::string which;
    for (const MountLine &line : lines)
        which +=
            (which.empty() ? "" : ", ") + hostadm::base::tr("{1} on {2}", line.resource, line.mount_point);
    fail(Code::unusable, hostadm::base::tr("{1} has {2} such lines ({3}); say which by resource and mountpt",
                                           table, lines.size(), which));
}

int work(Call &call) {
    const std::string resource = call.get("resource"), point = call.get("mountpt"),
                      table = call.get("vfstab");
    const MountLayout layout = mount_layout(call, table);
    if (resource.empty() && point.empty())
        return call.refuse(hostadm::base::tr("say which line: give resource, mountpt or both"));
    const auto lines = mount_lines_of(read_named_table(table), layout, resource, point);
    if (resource.empty() || point.empty())
        check_unique(lines, table);
    const bool changed = !lines.empty() && change_named_table(table, [&](std::string &text) {
        text = without_mount_lines(text, layout, resource, point);
    });
    if (changed && !mount_lines_of(read_named_table(table), layout, resource, point).empty())
        fail(Code::no_effect,
             hostadm::base::tr("{1} has the line again; somebody else may be changing it", table));
    tell_changed(call, changed);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
