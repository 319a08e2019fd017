// SPDX-License-Identifier: MIT
// The reader behind sysv_psinfo: from a process's directory to its record.
#pragma once

#include <string>
#include <string_view>

#include "hostadm/platform.h"

namespace hostadm::platform {

// The bytes of /proc/ID/cmdline as one text: each argument ends with a NUL there.
std::string joined_arguments(std::string_view command_line);

// Reads "cmdline" and "stat" of an open process directory.
// False, with errno, when it has none or the process has gone.
bool read_process(int directory_fd, struct sysv_psinfo &info);

} // namespace hostadm::platform
