// SPDX-License-Identifier: MIT
// Who this host is.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <sys/utsname.h>

#include "hostadm/platform.h"

namespace {

// What the kernel calls a domain that was never set.
bool is_no_domain(std::string_view domain) {
    return domain.empty() || domain == "(none)";
}

long failure(int error) {
    errno = error;
    return -1;
}

long copy_out(std::string_view text, char *buffer, long size) {
    if (size > 0) {
        const std::size_t kept = std::min(text.size(), static_cast<std::size_t>(size) - 1);
        std::memcpy(buffer, text.data(), kept);
        buffer[kept] = '\0';
    }
    return static_cast<long>(text.size()) + 1;
}

} // namespace

long sysv_sysinfo(int command, char *buffer, long size) {
    if (size < 0)
        return failure(EINVAL);
    if (buffer == nullptr && size > 0)
        return failure(EFAULT);
    utsname host{};
    if (uname(&host) != 0)
        return -1;
    switch (command) {
    case SYSV_SI_HOSTNAME:
        return copy_out(host.nodename, buffer, size);
    case SYSV_SI_RELEASE:
        return copy_out(HOSTADM_RELEASE, buffer, size);
    case SYSV_SI_ARCHITECTURE:
        return copy_out(HOSTADM_ARCHITECTURE, buffer, size);
    case SYSV_SI_SRPC_DOMAIN:
        return is_no_domain(host.domainname) ? failure(ENOENT) : copy_out(host.domainname, buffer, size);
    default:
        return failure(EINVAL);
    }
}
