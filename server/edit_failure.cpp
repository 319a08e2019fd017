// SPDX-License-Identifier: MIT
#include "server/edit_failure.hpp"

#include <cerrno>
#include <cstring>

#include "hostadm/table_edit.hpp"

namespace hostadm::server {

std::string edit_failure(const std::string &table, int status) {
    switch (status) {
    case tables::table_locked:
        return table + " is locked by another editor; nothing was changed, try again when it is done";
    case -EBUSY:
        return table + " is a mount point and cannot be replaced; edit the file that is mounted there";
    case -EACCES:
    case -EPERM:
        return table + " cannot be changed: " + std::strerror(-status) + "; is root needed?";
    default:
        return table + " cannot be changed: " + std::strerror(-status);
    }
}

} // namespace hostadm::server
