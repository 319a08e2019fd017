// SPDX-License-Identifier: MIT
// Makes a diskless client a cache-only one; what a failure leaves half done is taken back.
#include <string>

#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "methods/client/cachelet.hpp"
#include "server/bootparams.hpp"
#include "server/cached_mounts.hpp"
#include "server/cachelet_packages.hpp"
#include "server/claims.hpp"
#include "server/page.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/add_cachelet",
    .purpose =
        "make a diskless client a cache-only one: this server is prepared for it, its mounts go through its "
        "cache, and its automatic installation gets a disk profile",
    .arguments =
        {{.name = "hostname", .kind = Kind::host, .purpose = "the client's name", .required = true},
         {.name = "root",
          .kind = Kind::path,
          .purpose = "its root directory on this server (that of its entry in bootparams)"},
         {.name = "profile_set",
          .kind = Kind::word,
          .purpose = "directory in " HOSTADM_DATAADMIN "/etc/autoinstall",
          .required = true},
         {.name = "profile", .kind = Kind::word, .purpose = "file in that directory", .required = true},
         {.name = "setup",
          .kind = Kind::yes_no,
          .purpose = "install the packages that this server lacks to serve it; they stay",
          .default_value = "yes"}},
    .outputs = {{"root", "the client's root directory"}, changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done or unchanged"},
                {"detail", "what stands there now"}},
    .edits = {"root=", "/export", "/etc/bootparams", "/var/sadm"},
    .values = client_values,
};

struct CacheClient {
    Client client;
    std::string root, profile_set, profile;
};

int switch_over(Call &call, const CacheClient &wanted, Journal &journal) {
    Report report;
    call.progress(base::tr("looking after the packages that serve cache-only clients"));
    ensure_cachelet_packages(call, wanted.client, call.get("setup") == "yes", report);

    call.progress(base::tr("switching the mounts of {1} to its cache", wanted.root));
    announce(journal, paths_of_mounts());
    const bool mounts_changed = enable_cached_mounts(wanted.root);
    report.step("cached mounts", mounts_changed, told(cached_mounts(read_client_table(wanted.root))));

    call.progress(base::tr("copying the disk profile {1}", wanted.profile));
    announce(journal, paths_of_profile(wanted.profile));
    const bool profile_changed =
        set_install_profile(call.method(), wanted.root, wanted.profile_set, wanted.profile);
    report.step("disk profile", profile_changed, wanted.root + "/.autoinstall/" + wanted.profile);

    const std::string &name = wanted.client.name;
    const bool kind_changed = change_item(name, boot_type_item(ClientKind::cache_only), journal);
    report.step("bootparams", kind_changed, name + " " + client_items(name));
    report.tell(call);
    return 0;
}

int work(Call &call) {
    CacheClient wanted{cacheable_client(call.get("hostname"), call.get("root")), "", call.get("profile_set"),
                       call.get("profile")};
    wanted.root = wanted.client.own_path("root");
    const Claims claims(call.method(), wanted.client.name,
                        {{Claim::Kind::name, wanted.client.name}, {Claim::Kind::path, wanted.root}});
    check_client_root(wanted.root);
    check_install_profile(wanted.profile_set, wanted.profile);
    call.set("root", wanted.root);

    const base::Beneath root(wanted.root, base::Links::inside);
    Transaction transaction(call, wanted.client.name, remember(root, wanted.profile));
    return transaction.run_whole([&] { return switch_over(call, wanted, transaction.journal()); });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
