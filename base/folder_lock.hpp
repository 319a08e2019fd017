// SPDX-License-Identifier: MIT
// What those lock who work in a folder one at a time.
#pragma once

#include "base/descriptor.hpp"

namespace hostadm::base {

// Root's are files in /run/hostadm/KIND, one for each folder whatever its name: whoever may open a folder may hold a
// lock on it, and nobody but root reaches these. The folder itself, opened anew, serves an ordinary user, and root
// where no file can be kept. Not open, and errno says why, when not even that is possible.
Descriptor lock_file_of(int folder, const char *kind);

} // namespace hostadm::base
