// SPDX-License-Identifier: MIT
// What the calls of mount and umount have in common.
#pragma once

namespace compat {

// Exit statuses as Debian's programs have them.
constexpr int status_wrong_call = 1;
constexpr int status_mount_failed = 32;
constexpr int status_system_error = 2;

// Whether the arguments begin with "-F TYPE". To Debian's mount, -F is a flag that goes with -a; so a word
// that is an option, a path or a tag (UUID=...) is no type.
bool is_system_v_call(int argc, char **argv);

} // namespace compat
