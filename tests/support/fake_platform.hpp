// SPDX-License-Identifier: MIT
// A stand-in for the platform interface.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace fakes {

// What sysv_psinfo answers for a process; it fails for every other one.
struct Process {
    int defunct = 0;
    std::string name;
    std::string arguments;
};

struct SysinfoCall {
    int command;
    char *buffer;
    long size;
};

struct Platform {
    std::vector<SysinfoCall> sysinfo_calls;
    std::map<int, std::string> sysinfo = {{2, "server1"}, {3, "5.5"}, {6, "i386"}, {9, "lab.example"}};
    long no_sysinfo = -1;        // what sysv_sysinfo answers for any other item
    std::string fstype = "ext4"; // empty: sysv_fstype fails
    bool has_switch = true;      // is there a name-service switch?
    std::vector<std::string> sources = {"files"};
    std::map<int, Process> processes; // by process id; one that really exists, so that /proc has an entry
};

Platform &platform();
void reset_platform();

} // namespace fakes
