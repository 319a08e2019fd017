// SPDX-License-Identifier: MIT
// The reader behind sysv_fstype: the mount table of a process.
#pragma once

#include <istream>
#include <optional>
#include <string>

namespace hostadm::platform {

// The file system type of the mount with this id, from lines
// as in /proc/self/mountinfo; "nfs" for every version of NFS.
std::optional<std::string> type_of_mount(std::istream &mountinfo, unsigned long long mount_id);

} // namespace hostadm::platform
