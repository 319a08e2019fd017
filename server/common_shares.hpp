// SPDX-License-Identifier: MIT
// Directories that are shared for several clients at once, such as what they are installed from. One that was shared for
// their sake only is put down, so that it is withdrawn with the last of them.
#pragma once

#include <string>

#include "server/journal.hpp"

namespace hostadm::server {

// As ensure_share.
bool ensure_common_share(const std::string &method, const std::string &path, const std::string &options,
                         Journal &journal);

// Whether it was shared by that, and not by somebody else before.
bool is_common_share(const std::string &path);
void withdraw_common_share(const std::string &method, const std::string &path);

} // namespace hostadm::server
