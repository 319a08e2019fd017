// SPDX-License-Identifier: MIT
#include "server/failure.hpp"

#include <cerrno>
#include <cstring>

#include "hostadm/table_edit.hpp"

namespace hostadm::server {

void fail(Code code, const std::string &text) {
    throw Failure(code, text);
}

void fail_errno(const std::string &what) {
    throw Failure(Code::system, what + ": " + std::strerror(errno));
}

void refuse(const std::string &text) {
    throw Refusal(text);
}

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

void fail_edit(const std::string &table, int status) {
    throw Failure(status == tables::table_locked ? Code::busy : Code::table, edit_failure(table, status));
}

void fail_reading(const std::string &table, int status) {
    throw Failure(Code::table, table + " cannot be read: " + std::strerror(-status));
}

} // namespace hostadm::server
