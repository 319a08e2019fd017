// SPDX-License-Identifier: MIT
// Takes back what client/add_cachelet has done for a client; it stays a diskless one.
#include <string>

#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "methods/client/cachelet.hpp"
#include "server/bootparams.hpp"
#include "server/cached_mounts.hpp"
#include "server/claims.hpp"
#include "server/page.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/remove_cachelet",
    .purpose =
        "make a cache-only client a diskless one again: its mounts go without a cache, and it has no disk "
        "profile",
    .arguments = {{"hostname", Kind::host, "the client's name", true}},
    .outputs = {{"root", "the client's root directory"}, changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done or unchanged"},
                {"detail", "what stands there now"}},
    .edits = {"/export", "/etc/bootparams"},
    .values = client_values,
};

constexpr const char *folder = ".autoinstall", *link = ".autoinstall/profile";

// The name to which the link leads; empty: there is none, or it leads anywhere else.
std::string profile_in(const base::Beneath &root) {
    if (const auto there = root.status(link); !there || !S_ISLNK(there->st_mode))
        return "";
    const std::string target = root.link_target(link);
    return target.find('/') == target.npos && target != "." && target != ".." ? target : "";
}

bool remove_profile(const base::Beneath &root, const std::string &profile) {
    if (profile.empty())
        return false;
    root.remove(link);
    if (const std::string file = std::string(folder) + "/" + profile; root.is_file(file))
        root.remove(file);
    if (root.names(folder).empty())
        root.remove(folder);
    return true;
}

int switch_back(Call &call, const Client &client, const base::Beneath &root, const std::string &profile,
                Journal &journal) {
    const std::string path = client.own_path("root");
    call.progress(base::tr("switching the mounts of {1} off its cache", path));
    Report report;
    // First, because folders that go with what follows are not put back.
    const bool kind_changed = client.kind() == ClientKind::cache_only &&
                              change_item(client.name, boot_type_item(ClientKind::diskless), journal);
    report.step("bootparams", kind_changed, client.name + " " + client_items(client.name));
    announce(journal, paths_of_mounts());
    const bool mounts_changed = disable_cached_mounts(path);
    report.step("cached mounts", mounts_changed, told(cached_mounts(read_client_table(path))));
    announce(journal, paths_of_profile(profile));
    report.step("disk profile", remove_profile(root, profile), path + "/" + folder);
    root.flush();
    report.tell(call);
    return 0;
}

int work(Call &call) {
    const Client client = cacheable_client(call.get("hostname"), "");
    const std::string path = client.own_path("root");
    const Claims claims(call.method(), client.name,
                        {{Claim::Kind::name, client.name}, {Claim::Kind::path, path}});
    check_client_root(path);
    call.set("root", path);

    const base::Beneath root(path, base::Links::inside);
    const std::string profile = profile_in(root);
    Transaction transaction(call, client.name, remember(root, profile));
    return transaction.run_whole(
        [&] { return switch_back(call, client, root, profile, transaction.journal()); });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
