// SPDX-License-Identifier: MIT
#include <string>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "filesystem/list_shares",
    .purpose = "list the directories that are shared now",
    .columns = {{"path", "shared directory"}, {"options", "its options"}},
};

int work(Call &call) {
    if (const std::string missing = hostadm::server::missing_command("/usr/sbin/share", "knows the shares");
        !missing.empty())
        return call.fail(missing);
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
