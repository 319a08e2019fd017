// SPDX-License-Identifier: MIT
#include "sandbox/mount_table.hpp"

#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>
#include <sys/mount.h>

namespace hostadm::sandbox {

namespace {

// Blanks and the like stand as \ooo in the mount table.
std::string unescaped(const std::string &text) {
    const auto is_octal = [](char c) { return c >= '0' && c <= '7'; };
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() + 0 && is_octal(text[i + 1]) && is_octal(text[i + 2]) &&
            is_octal(text[i + 3])) {
            plain +=
                static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

unsigned long flags_of(const std::string &options) {
    unsigned long flags = 0;
    std::istringstream words(options);
    for (std::string option; std::getline(words, option, ',');) {
        if (option == "ro")
            flags |= MS_RDONLY;
        else if (option == "nosuid")
            flags |= MS_NOSUID;
        else if (option == "noexec")
            flags |= MS_NOEXEC;
    }
    return flags;
}

constexpr std::array<std::string_view, 23> kernel_types = {
    "autofs",   "binfmt_misc", "bpf",         "cgroup",     "cgroup2",   "configfs", "debugfs", "devpts",
    "efivarfs", "fuse.lxcfs",  "fuse.portal", "fusectl",    "hugetlbfs", "mqueue",   "nfsd",    "nsfs",
    "proc",     "pstore",      "rpc_pipefs",  "securityfs", "selinuxfs", "sysfs",    "tracefs"};

} // namespace

std::vector<Mount> read_mounts(std::istream &mountinfo) {
    // ID PARENT MAJOR:MINOR ROOT MOUNT-POINT OPTIONS [OPTIONAL FIELD]... - TYPE SOURCE SUPER-OPTIONS
    std::vector<Mount> mounts;
    for (std::string line; std::getline(mountinfo, line);) {
        std::istringstream words(line);
        Mount mount;
        std::string parent, device, root, options, word, source;
        if (!(words >> mount.id >> parent >> device >> root >> mount.point >> options))
            continue;
        while (words >> word && word != "-") {
        }
        if (!(words >> mount.type >> source))
            continue;
        std::string super_options;
        words >> super_options;
        mount.point = unescaped(mount.point);
        mount.flags = flags_of(options) | (flags_of(super_options) & MS_RDONLY);
        mounts.push_back(std::move(mount));
    }
    return mounts;
}

bool is_within(const std::string &path, const std::string &directory) {
    return path == directory || directory == "/" ||
           (path.compare(0, directory.size(), directory) == 0 && path[directory.size()] == '/');
}

bool is_shown(const Mount &mount) {
    if (mount.point == "/" || mount.point == "/dev")
        return true;
    if (std::find(kernel_types.begin(), kernel_types.end(), mount.type) != kernel_types.end())
        return false;
    if (is_within(mount.point, "/dev"))
        return mount.point == "/dev/shm";
    return !is_within(mount.point, "/proc") && !is_within(mount.point, "/sys") &&
           !is_within(mount.point, "/run");
}

} // namespace hostadm::sandbox
