// SPDX-License-Identifier: MIT
#include "src/support/replacement.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <utility>

#include "base/descriptor.hpp"
#include "src/support/temporary_file.hpp"

namespace hostadm {

Replacement::Replacement(std::string path, std::string table)
    : path_(std::move(path)), table_(std::move(table)), known_(stat(table_.c_str(), &old_) == 0) {}

Replacement::~Replacement() {
    if (!known_)
        return;
    const base::Descriptor table(
        open(table_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat now {};
    const bool is_replaced = table.is_open() && fstat(table.get(), &now) == 0 && S_ISREG(now.st_mode) &&
                             (now.st_ino != old_.st_ino || now.st_dev != old_.st_dev);
    if (!is_replaced)
        return;
    // A user who may not give files away keeps his own; changing the owner clears bits of the mode.
    if (now.st_uid != old_.st_uid || now.st_gid != old_.st_gid)
        static_cast<void>(fchown(table.get(), old_.st_uid, old_.st_gid) == 0);
    static_cast<void>(fchmod(table.get(), old_.st_mode & 07777) == 0);
}

bool Replacement::create() const {
    constexpr mode_t usual = 0644, needed_to_write = 0600;
    return create_exclusively(path_, known_ ? (old_.st_mode & 07777) | needed_to_write : usual);
}

} // namespace hostadm
