// SPDX-License-Identifier: MIT
// A stand-in for the platform interface.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace fakes {

struct Platform {
    std::map<int, std::string> sysinfo = {{2, "server1"}, {3, "5.5"}, {6, "i386"}, {9, "lab.example"}};
    std::string fstype = "ext4"; // empty: sysv_fstype fails
    bool has_switch = true;      // is there a name-service switch?
    std::vector<std::string> sources = {"files"};
};

Platform &platform();
void reset_platform();

} // namespace fakes
