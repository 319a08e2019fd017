// SPDX-License-Identifier: MIT
// Tables of mounts of seven columns (device, device to check, mount point, type, check pass, mount at boot, options),
// and what is mounted.
#pragma once

#include <functional>
#include <string>

namespace hostadm::server {

inline constexpr const char *mount_table = "/etc/vfstab";

// The whole table; empty when there is none.
std::string read_mount_table(const std::string &table);
// Whether a line of the text names this resource, or mount point; one that is empty counts as any.
bool has_mount_line(const std::string &text, const std::string &resource, const std::string &mount_point);
// Lets a library operation edit a copy of a table that lies where a client may lay links about it. 0, or its negative
// status. Throws base::BeneathError, std::runtime_error.
int edit_mount_table_copy(std::string &text, const std::function<int(const std::string &table)> &edit);
// Whether something is mounted at a directory.
bool is_mount_point(const std::string &directory);

} // namespace hostadm::server
