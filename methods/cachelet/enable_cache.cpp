// SPDX-License-Identifier: MIT
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/cached_mounts.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "cachelet/enable_cache",
    .purpose = "let a client mount its root, /usr and /usr/openwin through its local cache",
    .arguments = {{.name = "root",
                   .kind = Kind::path,
                   .purpose = "the client's root directory on this server; its etc/vfstab is changed",
                   .required = true}},
    .outputs = {{"result", "done, or unchanged when it was so already"}, changed_output},
    .columns = {{"mountpt", "file system"}, {"options", "its mount options now"}, {"cached", "yes or no"}},
    .edits = {"root="},
};

int work(Call &call) {
    const std::string root = call.get("root");
    check_client_root(root);
    call.progress(hostadm::base::tr("switching the mounts of {1} to its cache", root));
    const bool changed = enable_cached_mounts(root);
    call.set("result", changed ? "done" : "unchanged");
    tell_changed(call, changed);
    for (const CachedMount &mount : cached_mounts(read_client_table(root)))
        call.row({{"mountpt", mount.mountpt},
                  {"options", mount.options},
                  {"cached", mount.cached ? "yes" : "no"}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
