// SPDX-License-Identifier: MIT
#include "server/client_lock.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/text.hpp"
#include "server/host_tables.hpp"

namespace hostadm::server {

namespace {

// A socket's name has little room: longer host names go in by their hash.
std::string lock_name(const std::string &client) {
    constexpr std::size_t room = 80;
    const std::string name = base::lower_case(client);
    return "hostadm-client/" + (name.size() <= room ? name : std::to_string(std::hash<std::string>{}(name)));
}

} // namespace

ClientLock::ClientLock(const std::string &client) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const std::string name = lock_name(client);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    // The first byte stays zero: the name is no file.
    std::copy(name.begin(), name.end(), address.sun_path + 1);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (socket_ >= 0 && bind(socket_, reinterpret_cast<const sockaddr *>(&address), size) == 0)
        return;
    const int why = errno;
    if (socket_ >= 0)
        close(socket_);
    throw std::runtime_error(why == EADDRINUSE
                                 ? "somebody else is working on " + client + " at the moment; try again later"
                                 : "cannot lock " + client + ": " + std::strerror(why));
}

ClientLock::~ClientLock() {
    close(socket_);
}

SilencedErrors::SilencedErrors() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

SilencedErrors::~SilencedErrors() {
    dup2(saved_, STDERR_FILENO);
    close(saved_);
}

} // namespace hostadm::server
