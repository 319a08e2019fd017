// SPDX-License-Identifier: MIT
#include "server/adapters.hpp"

#include <unistd.h>

namespace hostadm::server {

std::string missing_command(const std::string &path, const std::string &purpose) {
    if (access(path.c_str(), X_OK) == 0)
        return {};
    return path + ", which " + purpose +
           ", is missing; the adapters that come with hostadm bring it (cmake --install BUILD --component "
           "compat)";
}

} // namespace hostadm::server
