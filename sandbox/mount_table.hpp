// SPDX-License-Identifier: MIT
// The file systems of the running system and how each is shown in a private root.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace hostadm::sandbox {

struct Mount {
    unsigned long long id = 0;
    std::string point;
    std::string type;
    unsigned long flags = 0; // MS_RDONLY, MS_NOSUID, MS_NOEXEC
};

// Mounts by lines as in /proc/self/mountinfo, parents before children.
std::vector<Mount> read_mounts(std::istream &mountinfo);

// Is path the directory itself, or below it?
bool is_within(const std::string &path, const std::string &directory);

// Does this mount hold files that the private root shows? The places that it makes anew (/proc, /sys, /run,
// most of /dev) and the kernel's own file systems are not among them.
bool is_shown(const Mount &mount);

} // namespace hostadm::sandbox
