// SPDX-License-Identifier: MIT
#include "server/adapters.hpp"

#include <unistd.h>

#include "base/translation.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

std::string missing_command(const std::string &path, const std::string &purpose) {
    if (access(path.c_str(), X_OK) == 0)
        return {};
    return base::tr("{1}, which {2}, is missing; the adapters that come with hostadm bring it (cmake "
                    "--install BUILD --component compat)",
                    path, purpose);
}

void require_command(const std::string &path, const std::string &purpose) {
    if (const std::string missing = missing_command(path, purpose); !missing.empty())
        fail(Code::missing_program, missing);
}

} // namespace hostadm::server
