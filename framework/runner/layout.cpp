// SPDX-License-Identifier: MIT
#include "framework/runner/layout.hpp"

#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/owners.hpp"

namespace hostadm::framework {

namespace {

bool is_folder(const std::string &path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISDIR(file.st_mode);
}

std::string real_path(const char *path) {
    const base::Allocated<char> resolved(realpath(path, nullptr));
    return resolved ? resolved.get() : "";
}

std::string folder_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? "" : path.substr(0, slash);
}

// The file that holds this code: a library, or the program where the code is linked into it.
std::string this_object() {
    Dl_info info{};
    link_map *object = nullptr;
    if (dladdr1(reinterpret_cast<const void *>(&layout), &info, reinterpret_cast<void **>(&object),
                RTLD_DL_LINKMAP) != 0 &&
        object != nullptr && object->l_name != nullptr && *object->l_name != '\0')
        return real_path(object->l_name);
    return real_path("/proc/self/exe");
}

} // namespace

Layout layout_from(const std::string &folder) {
    Layout found{{HOSTADM_METHODS_DIRECTORY}, HOSTADM_LOCALE_DIRECTORY, ""};
    // bin and lib lie one folder below the prefix, a library folder named by the architecture lies two below.
    std::string prefix = folder;
    for (int level = 0; level < 2 && !prefix.empty(); ++level) {
        prefix = folder_of(prefix);
        if (!is_folder(prefix + "/" HOSTADM_LIBEXEC "/hostadm/methods"))
            continue;
        found.method_folders = {prefix + "/" HOSTADM_LIBEXEC "/hostadm/methods"};
        if (is_folder(prefix + "/share/locale"))
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
    static const Layout found = layout_from(folder_of(this_object()));
    return found;
}

} // namespace hostadm::framework
