// SPDX-License-Identifier: MIT
#include <string>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"
#include "server/watched_commands.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/unshare",
    .purpose = "withdraw a share now, at boot, or both",
    .arguments =
        {{.name = "pathname", .kind = Kind::path, .purpose = "directory that is shared", .required = true},
         {.name = "client",
          .kind = Kind::host,
          .purpose = "withdraw it only if it is shared with this host alone"},
         {.name = "fstype",
          .kind = Kind::choice,
          .purpose = "type of the share",
          .default_value = "nfs",
          .choices = {"nfs"}},
         {.name = "takeeffect",
          .kind = Kind::choice,
          .purpose = "nowonly withdraws it, bootonly removes its line from /etc/dfs/dfstab, nowandboot "
                     "does both",
          .default_value = "nowandboot",
          .choices = {"nowonly", "bootonly", "nowandboot"}}},
    .outputs = {{"pathname", "the directory, without links and dots: what was withdrawn"}, changed_output},
    .edits = {"/etc/dfs/dfstab"},
    .shares = {"pathname="},
    .values = {{"pathname", "filesystem/list_shares", "path"},
               {"pathname", "filesystem/list_share_entries", "path"}},
};

// The share list is needed to tell whether a client is the only one.
void check_commands(const Call &call) {
    require_command("/usr/sbin/unshare", hostadm::base::tr("withdraws shares"));
    if (call.given("client"))
        require_command("/usr/sbin/share", hostadm::base::tr("knows the shares"));
}

int work(Call &call) {
    const Effect effect{call.get("takeeffect") != "bootonly", call.get("takeeffect") != "nowonly"};
    if (effect.now)
        check_commands(call);
    const std::string path = resolved_share_path(call.get("pathname"));
    const bool was_shared = is_in_share_list(path);
    const std::string table = read_share_table();
    const WatchedCommands commands;
    const int status =
        unsharefs(call.get("fstype").c_str(), call.get("pathname").c_str(), call.get("client").c_str(),
                  call.get("takeeffect").c_str(), call.method().c_str());
    if (status != 0)
        return status;
    check_withdrawn(path, effect, commands.any_was_killed());
    tell_changed(call, (effect.now && was_shared) || read_share_table() != table);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
