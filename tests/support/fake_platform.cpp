// SPDX-License-Identifier: MIT
#include "support/fake_platform.hpp"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <unistd.h>

#include "hostadm/platform.h"

namespace {

fakes::Platform state;

} // namespace

namespace fakes {

Platform &platform() {
    return state;
}
void reset_platform() {
    state = Platform{};
}

} // namespace fakes

extern "C" {

long sysv_sysinfo(int command, char *buffer, long size) {
    state.sysinfo_calls.push_back({command, buffer, size});
    const auto found = state.sysinfo.find(command);
    if (found == state.sysinfo.end())
        return state.no_sysinfo;
    std::snprintf(buffer, static_cast<std::size_t>(size), "%s", found->second.c_str());
    return static_cast<long>(found->second.size()) + 1;
}

int sysv_psinfo(int process_fd, struct sysv_psinfo *info) {
    char path[64] = "";
    const std::string link = "/proc/self/fd/" + std::to_string(process_fd);
    if (readlink(link.c_str(), path, sizeof path - 1) < 0)
        return -1;
    const std::string entry = path;
    const auto found = state.processes.find(std::atoi(entry.substr(entry.rfind('/') + 1).c_str()));
    if (found == state.processes.end())
        return -1;
    info->pr_pid = found->first;
    info->pr_zomb = found->second.defunct;
    std::snprintf(info->pr_fname, sizeof info->pr_fname, "%s", found->second.name.c_str());
    std::snprintf(info->pr_psargs, sizeof info->pr_psargs, "%s", found->second.arguments.c_str());
    return 0;
}

int sysv_fstype(const char *, char *name, unsigned long size) {
    if (state.fstype.empty())
        return -1;
    std::snprintf(name, size, "%s", state.fstype.c_str());
    return 0;
}

struct sysv_nsw_config *sysv_nsw_getconfig(const char *) {
    static sysv_nsw_config config;
    static std::deque<sysv_nsw_lookup> lookups;
    if (!state.has_switch)
        return nullptr;
    lookups.clear();
    for (const std::string &source : state.sources)
        lookups.push_back({source.c_str(), nullptr});
    for (std::size_t i = 1; i < lookups.size(); ++i)
        lookups[i - 1].next = &lookups[i];
    config.lookups = lookups.empty() ? nullptr : &lookups.front();
    return &config;
}

char *sysv_strlwr(char *text) {
    for (char *c = text; *c != '\0'; ++c)
        *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
    return text;
}

char *sysv_strupr(char *text) {
    for (char *c = text; *c != '\0'; ++c)
        *c = static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
    return text;
}
}
