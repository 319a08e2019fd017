// SPDX-License-Identifier: MIT
// Switches a client with a root of its own to its cache; what a failure leaves half done is taken back.
#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include "hostadm/method.hpp"
#include "server/cached_mounts.hpp"
#include "server/client_lock.hpp"
#include "server/remembered.hpp"
#include "server/undo.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;
namespace fs = std::filesystem;

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

// What the two steps change in the client's root, each folder before what is made in it.
std::vector<std::string> paths_of_mounts(const Client &client) {
    return {client.root + "/etc/vfstab", client.root + "/etc/fs", client.root + "/etc/fs/cachefs"};
}
std::vector<std::string> paths_of_profile(const Client &client) {
    const std::string folder = client.root + "/.autoinstall";
    return {folder, folder + "/" + client.profile, folder + "/profile"};
}

std::vector<Remembered> remember(const Client &client) {
    std::vector<Remembered> state;
    for (const auto &paths : {paths_of_mounts(client), paths_of_profile(client)})
        for (const std::string &path : paths)
            state.emplace_back(path);
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
        journal.note({"path", path});
}

int switch_over(Call &call, const Client &client, Journal &journal) {
    call.progress("switching the mounts of " + client.root + " to its cache");
    announce(journal, temporary_files_of_edit());
    announce(journal, paths_of_mounts(client));
    const bool mounts_changed = enable_cached_mounts(client.root);

    call.progress("copying the disk profile " + client.profile);
    announce(journal, paths_of_profile(client));
    const bool profile_changed =
        set_install_profile(call.method(), client.root, client.profile_set, client.profile);

    // Only now: of a run that failed nothing stays that could be told.
    const auto report = [&](const char *step, bool changed, const std::string &detail) {
        call.row({{"step", step}, {"result", changed ? "done" : "unchanged"}, {"detail", detail}});
    };
    report("cached mounts", mounts_changed, told(cached_mounts(read_client_table(client.root))));
    report("disk profile", profile_changed, client.root + "/.autoinstall/" + client.profile);
    return 0;
}

// Records what has not been recorded yet of a failure of the work.
int guarded(Call &call, const std::function<int()> &work) try {
    return work();
} catch (const Failed &failure) {
    return status_of(call, failure);
} catch (const std::exception &failure) {
    return call.fail(failure.what());
}

std::string put_back(const std::string &path, const std::vector<Remembered> &state) {
    const auto known = std::find_if(state.begin(), state.end(),
                                    [&](const Remembered &remembered) { return remembered.path() == path; });
    if (known != state.end())
        return known->put_back();
    std::error_code error; // a temporary file of the run
    fs::remove(path, error);
    return error ? path + " (" + error.message() + ")" : "";
}

int work(Call &call) {
    const Client client{call.given("root") ? call.get("root") : "/export/root/" + call.get("hostname"),
                        call.get("profile_set"), call.get("profile")};
    return guarded(call, [&] {
        const ClientLock lock(call.get("hostname"));
        check_client_root(client.root);
        check_install_profile(client.profile_set, client.profile);
        call.set("root", client.root);

        const std::vector<Remembered> state = remember(client);
        Journal journal;
        const Ending ending =
            run_apart([&] { return guarded(call, [&] { return switch_over(call, client, journal); }); });
        if (ending.done)
            return 0;
        if (!ending.reason.empty())
            call.fail(ending.reason);
        take_back(call, journal, [&](const auto &entry) { return put_back(entry.at(1), state); });
        return 1;
    });
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
