// SPDX-License-Identifier: MIT
// What the requests that make a client a cache-only one, and a diskless one again, have in common.
#pragma once

#include <string>
#include <vector>

#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "server/cached_mounts.hpp"
#include "server/clients.hpp"
#include "server/failure.hpp"
#include "server/journal.hpp"
#include "server/remembered.hpp"
#include "server/roots.hpp"
#include "server/transaction.hpp"

namespace hostadm {

// A client that has its root here and may mount it through a cache. Throws Failure.
inline server::Client cacheable_client(const std::string &name, const std::string &root) {
    server::Client client = server::known_client(name);
    if (client.kind() != server::ClientKind::diskless && client.kind() != server::ClientKind::cache_only)
        server::fail(server::Code::unusable,
                     base::tr("{1} is a client of the kind {2}; only a diskless one can be made cache-only",
                              client.name, name_of(client.kind())));
    if (client.own_path("root").empty())
        server::fail(server::Code::unusable, base::tr("the root of {1}, {2}, is not on this server",
                                                      client.name, client.item("root")));
    if (!root.empty() && server::real_path_of(root) != client.own_path("root"))
        server::fail(server::Code::taken, base::tr("{1} is not the root of {2}, which is {3}", root,
                                                   client.name, client.own_path("root")));
    return client;
}

// What the mounts change in the client's root, each folder before what is made in it.
inline std::vector<std::string> paths_of_mounts() {
    return {"etc/vfstab", "etc/fs", "etc/fs/cachefs"};
}
inline std::vector<std::string> paths_of_profile(const std::string &profile) {
    std::vector<std::string> paths = {".autoinstall"};
    if (!profile.empty())
        paths.push_back(".autoinstall/" + profile);
    paths.emplace_back(".autoinstall/profile");
    return paths;
}

inline std::vector<server::Remembered> remember(const base::Beneath &root, const std::string &profile) {
    std::vector<server::Remembered> state;
    for (const auto &paths : {paths_of_mounts(), paths_of_profile(profile)})
        for (const std::string &path : paths)
            state.emplace_back(root, path);
    return state;
}

inline void announce(server::Journal &journal, const std::vector<std::string> &paths) {
    for (const std::string &path : paths)
        journal.note(server::Touched{path});
}

// The options of the cached file systems, such as "/ rw,disconnectable; /usr ro,disconnectable".
inline std::string told(const std::vector<server::CachedMount> &mounts) {
    std::string text;
    for (const server::CachedMount &mount : mounts)
        text += (text.empty() ? "" : "; ") + mount.mountpt + " " + mount.options;
    return text;
}

} // namespace hostadm
