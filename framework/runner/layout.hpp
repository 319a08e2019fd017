// SPDX-License-Identifier: MIT
// Where this installation keeps its parts, found from where the running code lies; no setting changes it.
#pragma once

#include <string>
#include <vector>

namespace hostadm::framework {

struct Layout {
    // Each holds CLASS/NAME: this installation's own, and the site's, where the administrator puts more.
    std::vector<std::string> method_folders;
    std::string locale;   // holds LANG/LC_MESSAGES
    std::string programs; // holds the command; empty when it is not there
};

const Layout &layout();
// The layout seen from an object (library or program) in this folder.
Layout layout_from(const std::string &folder);

} // namespace hostadm::framework
