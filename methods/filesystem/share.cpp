// SPDX-License-Identifier: MIT
#include <string>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/nfs_server.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"
#include "server/watched_commands.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/share",
    .purpose = "share a directory over NFS now, at boot, or both",
    .arguments =
        {{.name = "pathname", .kind = Kind::path, .purpose = "directory to share", .required = true},
         {.name = "options",
          .kind = Kind::options,
          .purpose = "who may do what: ro, rw, rw=client1:client2, root=client1, anon=0",
          .default_value = "rw"},
         {.name = "description", .kind = Kind::text, .purpose = "words about the share, shown in its list"},
         {.name = "fstype",
          .kind = Kind::choice,
          .purpose = "type of the share",
          .default_value = "nfs",
          .choices = {"nfs"}},
         {.name = "takeeffect",
          .kind = Kind::choice,
          .purpose = "nowonly shares, bootonly writes /etc/dfs/dfstab, nowandboot does both; a line of "
                     "/etc/dfs/dfstab for the same directory is replaced",
          .default_value = "nowandboot",
          .choices = {"nowonly", "bootonly", "nowandboot"}},
         {.name = "force",
          .kind = Kind::yes_no,
          .purpose = "go on when it cannot be shared now, and note it in /etc/dfs/dfstab as a comment",
          .default_value = "no"}},
    .outputs = {{"pathname", "the directory, without links and dots: what was shared"}, changed_output},
    .edits = {"/etc/dfs/dfstab"},
    .starts = {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd"},
    .shares = {"pathname="},
    .values = {{"pathname", "filesystem/list_share_entries", "path"}},
};

int work(Call &call) {
    const Effect effect{call.get("takeeffect") != "bootonly", call.get("takeeffect") != "nowonly"};
    const bool force = call.get("force") == "yes";
    if (effect.now && !force)
        require_command("/usr/sbin/share", hostadm::base::tr("shares directories"));
    const std::string words = as_one_word(call.get("description")), options = call.get("options"),
                      path = resolved_share_path(call.get("pathname"));
    const bool was_shared = is_in_share_list(path, options);
    const std::string table = read_share_table();
    if (effect.now)
        ensure_nfs_server();
    const WatchedCommands commands;
    const int status =
        sharefs(call.get("fstype").c_str(), options.c_str(), words.c_str(), call.get("pathname").c_str(),
                call.get("takeeffect").c_str(), call.method().c_str(), force ? 1 : 0);
    if (status != 0)
        return status;
    if (!force)
        check_shared(path, options, effect, commands.any_was_killed());
    tell_changed(call, (effect.now && !force && !was_shared) || read_share_table() != table);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
