// SPDX-License-Identifier: MIT
#include "methods/client/add_diskless/failure.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace hostadm::diskless {

void refuse(const std::string &text) {
    throw Refused(text);
}

void fail(const std::string &text) {
    throw std::runtime_error(text);
}

void fail_errno(const std::string &what) {
    fail(what + ": " + std::strerror(errno));
}

} // namespace hostadm::diskless
