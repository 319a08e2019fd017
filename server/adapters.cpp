// SPDX-License-Identifier: MIT
#include "server/adapters.hpp"

#include <unistd.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

namespace {

// The Debian package keeps adapters here whose names Debian's own programs have, until they are asked for.
const std::string aside = "/usr/libexec/hostadm/names/";

} // namespace

std::string how_to_install_adapters() {
    return HOSTADM_INSTALL_ADAPTERS;
}

std::string missing_command(const std::string &path, const std::string &purpose) {
    if (access(path.c_str(), X_OK) == 0)
        return {};
    if (access((aside + std::string(base::last_component(path))).c_str(), X_OK) == 0)
        return base::tr(
            "{1}, which {2}, is not there, because Debian has a program of that name; let hostadm's come "
            "before it: hostadm-names take",
            path, purpose);
    return base::tr("{1}, which {2}, is missing; the adapters that come with hostadm bring it ({3})", path,
                    purpose, how_to_install_adapters());
}

void require_command(const std::string &path, const std::string &purpose) {
    if (const std::string missing = missing_command(path, purpose); !missing.empty())
        fail(Code::missing_program, missing);
}

} // namespace hostadm::server
