// SPDX-License-Identifier: MIT
#include <string>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/list_shares",
    .purpose = "list the directories that are shared now",
    .columns = {{"path", "shared directory"}, {"options", "its options"}},
};

int work(Call &) {
    require_command("/usr/sbin/share", hostadm::base::tr("knows the shares"));
    get_sharefs_ents();
    ManyRows rows;
    for (const sharefs_entry *entry = sfs_top; entry != nullptr; entry = entry->next)
        rows.add({{"path", entry->path}, {"options", entry->options}});
    free_sharefs_ents();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
