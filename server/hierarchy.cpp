// SPDX-License-Identifier: MIT
#include "server/hierarchy.hpp"

#include <filesystem>
#include <system_error>

#include "hostadm.h"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

bool is_directory(const std::string &path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool is_file(const std::string &path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

std::string first_file(const std::vector<std::string> &candidates, const std::string &what) {
    std::string tried;
    for (const std::string &candidate : candidates) {
        if (is_file(candidate))
            return candidate;
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    throw std::runtime_error("no boot program for " + what + "; looked for " + tried);
}

} // namespace

bool holds_packages(const std::string &directory) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error))
        if (is_file(entry->path() / "pkginfo"))
            return true;
    return false;
}

bool is_tree(const std::string &directory) {
    return is_directory(directory + "/etc") || is_directory(directory + "/usr");
}

OsPaths find_os(const std::string &hierarchy, const Identity &identity) {
    const auto &[inst_set, impl_arch, os_name, os_version] = identity;
    const std::string above = hierarchy == "/" ? "" : hierarchy;
    if (!is_directory(hierarchy))
        throw std::runtime_error(hierarchy + " is not a directory");

    const std::string system = os_name + "_" + os_version;
    const std::string boot_part = "/lib/fs/nfs/inetboot";
    const std::string exec = above + "/export/exec/" + inst_set + "." + system;
    if (is_directory(exec)) {
        const std::string templates = above + "/export/root/templates/" + system;
        return {is_directory(templates) ? templates : exec,
                first_file({exec + "/platform/" + impl_arch + boot_part, exec + boot_part},
                           impl_arch + " in the export area " + hierarchy)};
    }
    if (is_tree(hierarchy)) {
        const std::string boot_name =
            make_boot_name(os_version.c_str(), os_name.c_str(), inst_set.c_str(), impl_arch.c_str());
        return {hierarchy,
                first_file({above + "/boot/" + boot_name, above + "/usr/platform/" + impl_arch + boot_part,
                            above + "/platform/" + impl_arch + boot_part, above + "/usr" + boot_part,
                            above + boot_part},
                           impl_arch + " in the tree " + hierarchy)};
    }
    throw std::runtime_error(hierarchy + " is no install hierarchy: it holds neither " + exec +
                             " nor a root file system (etc or usr)");
}

} // namespace hostadm::server
