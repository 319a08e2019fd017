// SPDX-License-Identifier: MIT
// A client's own table of mounts (etc/vfstab under its root), and which of its file systems are reached
// through the client's cache.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hostadm/method.hpp"

namespace hostadm::server {

struct CachedMount {
    std::string mountpt;
    std::string options; // the last column
    bool cached;         // has the option "disconnectable"
};

// The lines of a table that matter: those of /, /usr and /usr/openwin, and any other that has the option.
std::vector<CachedMount> cached_mounts(std::string_view table);

// A client's root as a step sees it: every function here throws Failure.

// Throws unless the directory is a client's root with a table
// of mounts, and no link in it leads the edits below out of it.
void check_client_root(const std::string &root);
std::string read_client_table(const std::string &root);

// Switch the cached mounts on and off; false:
// nothing had to be changed. What a failure leaves is what was before.
bool enable_cached_mounts(const std::string &root);
bool disable_cached_mounts(const std::string &root);

bool has_cache_directory(const std::string &root);

// Copies an install profile into the client and points "profile" at it; false: that was so already. Throws
// before anything is changed when there is no such profile.
bool set_install_profile(const std::string &method, const std::string &root, const std::string &set,
                         const std::string &profile);
// Throws unless the set has the profile.
void check_install_profile(const std::string &set, const std::string &profile);

} // namespace hostadm::server
