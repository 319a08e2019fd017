// SPDX-License-Identifier: MIT
// The reader behind sysv_psinfo: from a process's directory to its record.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hostadm/platform.h"

namespace hostadm::platform {

// What one line of /proc/ID/stat tells first: "ID (NAME) STATE ...".
// A name may hold blanks, brackets and newlines.
struct ProcessStat {
    int pid = 0;
    std::string_view name;
    char state = '\0';
};
std::optional<ProcessStat> parse_stat(std::string_view text);

// The bytes of /proc/ID/cmdline as one text: each argument ends with a NUL there.
std::string joined_arguments(std::string_view command_line);

// Reads "cmdline" and "stat" of an open process directory.
// False, with errno, when it has none or the process has gone.
bool read_process(int directory_fd, struct sysv_psinfo &info);

} // namespace hostadm::platform
