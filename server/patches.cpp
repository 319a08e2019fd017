// SPDX-License-Identifier: MIT
#include "server/patches.hpp"

#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/confined.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

std::vector<std::string> patched_packages(const std::string &store) {
    std::vector<std::string> found;
    std::error_code error;
    for (fs::directory_iterator patch(store, error), end; !error && patch != end; patch.increment(error)) {
        std::error_code inner;
        for (fs::directory_iterator package(patch->path(), inner); !inner && package != end;
             package.increment(inner))
            if (fs::exists(package->path() / "pkgmap", inner))
                found.push_back(package->path());
    }
    return found;
}

// As the library asks: the value may go on, as in ARCH=kel4.kel4m.
bool is_patch_for(const std::string &package, const std::string &architecture) {
    std::ifstream file(package + "/pkginfo");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("ARCH=" + architecture))
            return true;
    return false;
}

std::vector<std::string> patches_for(const std::string &architecture, const std::string &store) {
    std::set<std::string> names;
    for (const std::string &package : patched_packages(store))
        if (is_patch_for(package, architecture))
            names.insert(fs::path(package).parent_path().filename());
    return {names.begin(), names.end()};
}

bool has_patch_tool() {
    return exists(patch_tool);
}

bool apply_stored_patches(const method::Call &call, const std::string &root) {
    call.progress(base::tr("applying patches to {1}", root));
    // Patches are packages of a kind, and may rightly lead through links of the root.
    if (run_confined(root, [&] { return apply_patches(root.c_str()); }, {.links_are_followed = true}) != 0) {
        call.fail(base::tr("cannot apply the patches to {1}", root),
                  static_cast<int>(Code::system)); // the tool may have failed without a word
        return false;
    }
    base::Beneath(root).flush();
    return true;
}

} // namespace hostadm::server
