// SPDX-License-Identifier: MIT
// The software catalogue of an operating system, three small files which every root that is made of packages gets a copy
// of: what there is to install (.clustertoc), what was (CLUSTER), and of which release (INST_RELEASE). They lie in the
// operating system's area, at a place of today and at one of old: a root has the folders of the one or the other.
#pragma once

#include <string>
#include <vector>

#include "server/journal.hpp"

namespace hostadm::server {

struct CatalogueOf {
    std::string area; // /export/NAME_VERSION
    std::string os_name, os_version;
    std::vector<std::string> packages = {}; // names
    std::vector<std::string> sources = {};  // directories that may bring these files
};

// Makes the files that are missing: a copy of what a source has, or a short one of our own. False: all were there.
bool ensure_catalogue(const CatalogueOf &what, Journal &journal);

} // namespace hostadm::server
