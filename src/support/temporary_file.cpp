// SPDX-License-Identifier: MIT
#include "src/support/temporary_file.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hostadm {

namespace {

// One try; EEXIST when somebody took the name between the two calls.
int create_fresh(const char *path) {
    if (unlink(path) != 0 && errno != ENOENT)
        return -1;
    return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

// Closes without hiding the errno of what went before.
void close_quietly(int descriptor) {
    const int reason = errno;
    close(descriptor);
    errno = reason;
}

} // namespace

bool create_exclusively(const std::string &path, mode_t mode) {
    constexpr int tries = 100;
    int descriptor = -1;
    for (int i = 0; i < tries; ++i) {
        descriptor = create_fresh(path.c_str());
        if (descriptor >= 0 || (errno != EEXIST && errno != EINTR))
            break;
    }
    if (descriptor < 0)
        return false;
    const bool ready = fchmod(descriptor, mode) == 0; // whatever the umask
    close_quietly(descriptor);
    return ready;
}

std::optional<std::string> create_unique(std::string name_template) {
    const int descriptor = mkstemp(name_template.data());
    if (descriptor < 0)
        return std::nullopt;
    close_quietly(descriptor);
    return name_template;
}

RemovedAtEnd::~RemovedAtEnd() {
    unlink(path_.c_str());
}

} // namespace hostadm
