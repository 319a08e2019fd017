// SPDX-License-Identifier: MIT
// Switches a client with a root of its own to its cache; what a failure leaves half done is taken back.
#include <string>
#include <vector>

#include "base/beneath.hpp"
#include "hostadm/method.hpp"
#include "server/cached_mounts.hpp"
#include "server/claims.hpp"
#include "server/page.hpp"
#include "server/remembered.hpp"
#include "server/report.hpp"
#include "server/roots.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/add_cachelet",
    .purpose =
        "make a client with an existing root a cache-only one: its mounts go through its cache, and its "
        "automatic installation gets a disk profile",
    .arguments =
        {{.name = "hostname", .kind = Kind::host, .purpose = "the client's name", .required = true},
         {.name = "root",
          .kind = Kind::path,
          .purpose = "its root directory on this server (/export/root/HOSTNAME)"},
         {.name = "profile_set",
          .kind = Kind::word,
          .purpose = "directory in " HOSTADM_DATAADMIN "/etc/autoinstall",
          .required = true},
         {.name = "profile", .kind = Kind::word, .purpose = "file in that directory", .required = true}},
    .outputs = {{"root", "the client's root directory"}, changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done or unchanged"},
                {"detail", "what stands there now"}},
    .edits = {"root="},
};

struct CacheClient {
    std::string root, profile_set, profile;
};

// What the two steps change in the client's root, each folder before what is made in it.
std::vector<std::string> paths_of_mounts() {
    return {"etc/vfstab", "etc/fs", "etc/fs/cachefs"};
}
std::vector<std::string> paths_of_profile(const CacheClient &client) {
    return {".autoinstall", ".autoinstall/" + client.profile, ".autoinstall/profile"};
}

std::vector<Remembered> remember(const base::Beneath &root, const CacheClient &client) {
    std::vector<Remembered> state;
    for (const auto &paths : {paths_of_mounts(), paths_of_profile(client)})
        for (const std::string &path : paths)
            state.emplace_back(root, path);
    return state;
}

// The options of the cached file systems, such as "/ rw,disconnectable; /usr ro,disconnectable".
std::string told(const std::vector<CachedMount> &mounts) {
    std::string text;
    for (const CachedMount &mount : mounts)
        text += (text.empty() ? "" : "; ") + mount.mountpt + " " + mount.options;
    return text;
}

void announce(Journal &journal, const std::vector<std::string> &paths) {
    for (const std::string &path : paths)
        journal.note(Touched{path});
}

int switch_over(Call &call, const CacheClient &client, Journal &journal) {
    call.progress("switching the mounts of " + client.root + " to its cache");
    announce(journal, paths_of_mounts());
    const bool mounts_changed = enable_cached_mounts(client.root);

    call.progress("copying the disk profile " + client.profile);
    announce(journal, paths_of_profile(client));
    const bool profile_changed =
        set_install_profile(call.method(), client.root, client.profile_set, client.profile);

    Report report;
    report.step("cached mounts", mounts_changed, told(cached_mounts(read_client_table(client.root))));
    report.step("disk profile", profile_changed, client.root + "/.autoinstall/" + client.profile);
    report.tell(call);
    return 0;
}

int work(Call &call) {
    const CacheClient client{call.given("root") ? call.get("root") : "/export/root/" + call.get("hostname"),
                             call.get("profile_set"), call.get("profile")};
    const Claims claims(
        call.method(), call.get("hostname"),
        {{Claim::Kind::name, call.get("hostname")}, {Claim::Kind::path, real_path_of(client.root)}});
    check_client_root(client.root);
    check_install_profile(client.profile_set, client.profile);
    call.set("root", client.root);

    const base::Beneath root(client.root, base::Links::inside);
    Transaction transaction(call, call.get("hostname"), remember(root, client));
    if (transaction.run([&] { return switch_over(call, client, transaction.journal()); }))
        return 0;
    transaction.take_back();
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
