// SPDX-License-Identifier: MIT
// Tables of mounts, and what is mounted. A table has seven columns (vfstab: device, device to check, mount point, type,
// check pass, mount at boot, options) or six (fstab: device, mount point, type, options, days between dumps, pass).
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/mounts.hpp"
#include "hostadm/method.hpp"

namespace hostadm::server {

inline constexpr const char *mount_table = "/etc/vfstab";

// The whole table; empty when there is none.
std::string read_mount_table(const std::string &table);
// Whether a line of the text names this resource, or mount point; one that is empty counts as any.
bool has_mount_line(const std::string &text, const std::string &resource, const std::string &mount_point);
// Lets a library operation edit a copy of a table that lies where a client may lay links about it. 0, or its negative
// status. Throws base::BeneathError, std::runtime_error.
int edit_table_copy(std::string &text, const std::function<int(const std::string &table)> &edit);

enum class MountLayout { seven_columns, six_columns };
// The argument by which methods are told, and what was meant: without it a table named fstab has six.
inline const method::Argument mount_layout_argument{
    .name = "layout",
    .kind = method::Kind::choice,
    .purpose = "vfstab has seven columns; fstab, or 4x, the six of a 4.x release and of this system's own: "
               "resource, mountpt, fstype, mntopts, freq, fsckpass (default: by the table's name)",
    .choices = {"vfstab", "fstab", "4x"}};
MountLayout mount_layout(const method::Call &call, const std::string &table);

// A line of either layout; what it does not have is empty.
struct MountLine {
    std::string resource, fsckdev, mount_point, type, options, freq, pass, at_boot;
};
std::vector<MountLine> mount_lines(std::string_view text, MountLayout layout);
// The lines with this resource and this mount point; one that is empty counts as any.
std::vector<MountLine> mount_lines_of(std::string_view text, MountLayout layout, const std::string &resource,
                                      const std::string &mount_point);
// The text without these lines; all others keep every byte.
std::string without_mount_lines(std::string_view text, MountLayout layout, const std::string &resource,
                                const std::string &mount_point);

// What is mounted now, what lies above before what lies below it. Without the system's own are left out: those at or
// below /proc, /sys, /dev and /run, and the root, which nobody unmounts from a running server.
enum class SystemMounts { left_out, listed };
std::vector<base::Mount> mounts_now(SystemMounts system);
// Whether something is mounted at a directory.
bool is_mount_point(const std::string &directory);
// Whether it is this resource, to be written to or only read as these options want it.
bool is_mounted_so(const std::string &resource, const std::string &directory, const std::string &options);

} // namespace hostadm::server
