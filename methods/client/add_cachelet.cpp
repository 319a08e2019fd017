// SPDX-License-Identifier: MIT
#include <filesystem>

#include "hostadm/method.hpp"
#include "support/cached_mounts.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::support;

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
    .outputs = {{"root", "the client's root directory"}},
    .columns = {{"step", "what was looked after"},
                {"result", "done or unchanged"},
                {"detail", "what stands there now"}},
};

struct Client {
    std::string root, profile_set, profile;
};

// The options of the cached file systems, such as "/ rw,disconnectable, /usr ro,disconnectable".
std::string told(const std::vector<CachedMount> &mounts) {
    std::string text;
    for (const CachedMount &mount : mounts)
        text += (text.empty() ? "" : "; ") + mount.mountpt + " " + mount.options;
    return text;
}

void report(Call &call, const char *step, bool changed, const std::string &detail) {
    call.row({{"step", step}, {"result", changed ? "done" : "unchanged"}, {"detail", detail}});
}

void give_profile(Call &call, const Client &client) {
    call.progress("copying the disk profile " + client.profile);
    const bool changed = set_install_profile(call.method(), client.root, client.profile_set, client.profile);
    report(call, "disk profile", changed, client.root + "/.autoinstall/" + client.profile);
}

// Takes the first step back when the second one failed, and says what could not be taken back.
int take_back(Call &call, const Client &client, const std::string &table, bool had_cache_directory) {
    call.progress("taking back what was done");
    try {
        restore_client_table(client.root, table, had_cache_directory);
    } catch (const Failed &failure) {
        call.left_undone(failure.text);
    }
    return 1;
}

int work(Call &call) try {
    const Client client{call.given("root") ? call.get("root") : "/export/root/" + call.get("hostname"),
                        call.get("profile_set"), call.get("profile")};
    check_client_root(client.root);
    check_install_profile(client.profile_set, client.profile);
    call.set("root", client.root);

    const std::string table = read_client_table(client.root);
    const bool had_cache_directory = has_cache_directory(client.root);
    try {
        call.progress("switching the mounts of " + client.root + " to its cache");
        const bool changed = enable_cached_mounts(client.root);
        report(call, "cached mounts", changed, told(cached_mounts(read_client_table(client.root))));
        give_profile(call, client);
    } catch (const Failed &failure) {
        if (!failure.text.empty())
            call.fail(failure.text);
        return take_back(call, client, table, had_cache_directory);
    }
    return 0;
} catch (const Failed &failure) {
    return failure.text.empty() ? 1 : call.fail(failure.text);
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
