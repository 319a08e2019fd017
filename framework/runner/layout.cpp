// SPDX-License-Identifier: MIT
#include "framework/runner/layout.hpp"

#include <cstdlib>
#include <unistd.h>

#include "base/own_place.hpp"
#include "base/owners.hpp"

namespace hostadm::framework {

namespace {

std::string real_path(const char *path) {
    const base::Allocated<char> resolved(realpath(path, nullptr));
    return resolved ? resolved.get() : "";
}

} // namespace

Layout layout_from(const std::string &folder) {
    Layout found{{HOSTADM_METHODS_DIRECTORY}, HOSTADM_LOCALE_DIRECTORY, ""};
    // bin and lib lie one folder below the prefix, a library folder named by the architecture lies two below.
    std::string prefix = folder;
    for (int level = 0; level < 2 && !prefix.empty(); ++level) {
        prefix = base::folder_of(prefix);
        if (!base::is_folder(prefix + "/" HOSTADM_LIBEXEC "/hostadm/methods"))
            continue;
        found.method_folders = {prefix + "/" HOSTADM_LIBEXEC "/hostadm/methods"};
        if (base::is_folder(prefix + "/share/locale"))
            found.locale = prefix + "/share/locale";
        if (access((prefix + "/bin/hostadm").c_str(), X_OK) == 0)
            found.programs = prefix + "/bin";
        break;
    }
    if (real_path(HOSTADM_SITE_METHODS) != real_path(found.method_folders.front().c_str()))
        found.method_folders.emplace_back(HOSTADM_SITE_METHODS);
    return found;
}

const Layout &layout() {
    static const Layout found = layout_from(base::own_folder());
    return found;
}

} // namespace hostadm::framework
