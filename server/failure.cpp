// SPDX-License-Identifier: MIT
#include "server/failure.hpp"

#include <cerrno>
#include <cstring>

#include "base/translation.hpp"
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
        return base::tr("{1} is locked by another editor; nothing was changed, try again when it is done",
                        table);
    case -EBUSY:
        return base::tr("{1} is a mount point and cannot be replaced; edit the file that is mounted there",
                        table);
    case -EACCES:
    case -EPERM:
        return base::tr("{1} cannot be changed: {2}; is root needed?", table, std::strerror(-status));
    default:
        return base::tr("{1} cannot be changed: {2}", table, std::strerror(-status));
    }
}

void fail_edit(const std::string &table, int status) {
    throw Failure(status == tables::table_locked ? Code::busy : Code::table, edit_failure(table, status));
}

void fail_reading(const std::string &table, int status) {
    throw Failure(Code::table, base::tr("{1} cannot be read: {2}", table, std::strerror(-status)));
}

} // namespace hostadm::server
