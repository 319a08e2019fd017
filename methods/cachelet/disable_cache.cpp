// SPDX-License-Identifier: MIT
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/cached_mounts.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "cachelet/disable_cache",
    .purpose = "let a client mount its file systems without its local cache; mount options behind "
               "\"disconnectable\" are dropped with it",
    .arguments = {{.name = "root",
                   .kind = Kind::path,
                   .purpose = "the client's root directory on this server; its etc/vfstab is changed",
                   .required = true}},
    .outputs = {{"result", "done, or unchanged when it was so already"},
                {"cache_directory", "removed, or kept because it still holds files"},
                changed_output},
    .columns = {{"mountpt", "file system whose options changed"},
                {"options_before", "its mount options before"},
                {"options", "its mount options now"}},
    .edits = {"root="},
};

// What stands before the option and what follows it, as the table had it.
std::string without_option(const std::string &options) {
    return options.substr(0, options.find(",disconnectable"));
}

int work(Call &call) {
    const std::string root = call.get("root");
    check_client_root(root);
    const std::vector<CachedMount> before = cached_mounts(read_client_table(root));
    call.progress(hostadm::base::tr("switching the mounts of {1} off its cache", root));
    const bool changed = disable_cached_mounts(root);
    call.set("result", changed ? "done" : "unchanged");
    tell_changed(call, changed);
    call.set("cache_directory", has_cache_directory(root) ? "kept" : "removed");
    for (const CachedMount &mount : before)
        if (const std::string now = without_option(mount.options); now != mount.options)
            call.row({{"mountpt", mount.mountpt}, {"options_before", mount.options}, {"options", now}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
