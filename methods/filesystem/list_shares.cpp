// SPDX-License-Identifier: MIT
#include <unistd.h>

#include "hostadm.h"
#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;

constexpr char share_program[] = "/usr/sbin/share";

const Description description{
    .name = "filesystem/list_shares",
    .purpose = "list the directories that are shared now",
    .columns = {{"path", "shared directory"}, {"options", "its options"}},
};

int work(Call &call) {
    if (access(share_program, X_OK) != 0)
        return call.fail(std::string("cannot run ") + share_program +
                         ", which knows the shares; is an NFS server with its share command installed?");
    get_sharefs_ents();
    ManyRows rows;
    for (const sharefs_entry *entry = sfs_top; entry != nullptr; entry = entry->next)
        rows.add({{"path", entry->path}, {"options", entry->options}});
    free_sharefs_ents();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
