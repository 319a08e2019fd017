// SPDX-License-Identifier: MIT
// What a file carries beside its contents, mode and owner, such as an access control list.
#pragma once

namespace hostadm::base {

// The open file `to` gets the extended attributes of `from`, and an access control list only if that has one.
// Where the file system has none, there is nothing to do. Returns 0 or errno.
int copy_extended_attributes(int from, int to);

} // namespace hostadm::base
