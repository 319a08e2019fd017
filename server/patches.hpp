// SPDX-License-Identifier: MIT
// The store of patches for clients' roots: a folder for each patch, in it one for each patched package with its map
// (pkgmap) and its description (pkginfo).
#pragma once

#include <string>
#include <vector>

#include "hostadm/method.hpp"

namespace hostadm::server {

inline constexpr const char *patch_store = HOSTADM_DATAADMIN "/Patches";
inline constexpr const char *patch_tool = HOSTADM_OPTADMIN "/bin/drelpatch";

// The folders of patched packages in a store.
std::vector<std::string> patched_packages(const std::string &store = patch_store);
// Whether such a package is for an instruction-set architecture.
bool is_patch_for(const std::string &package, const std::string &architecture);
// The patches of a store that are for it, in the order of their names.
std::vector<std::string> patches_for(const std::string &architecture, const std::string &store = patch_store);

// Whether the tool that applies them is there.
bool has_patch_tool();
// Lets it apply the stored patches to a client's root, from where it can write nowhere else. False, with the failure
// recorded: it may have applied some.
bool apply_stored_patches(const method::Call &call, const std::string &root);

} // namespace hostadm::server
