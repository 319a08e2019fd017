// SPDX-License-Identifier: MIT
// A file descriptor that closes itself.
#pragma once

#include <cerrno>
#include <string>
#include <unistd.h>
#include <utility>

namespace hostadm::sandbox {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            reset();
            fd_ = other.release();
        }
        return *this;
    }

    bool is_open() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset() {
        if (fd_ < 0)
            return;
        const int saved = errno;
        ::close(release());
        errno = saved;
    }
    // A path that leads to the open file, for system calls that take no descriptor.
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_ = -1;
};

} // namespace hostadm::sandbox
