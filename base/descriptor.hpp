// SPDX-License-Identifier: MIT
// An open descriptor that closes itself, and whole reads and writes.
#pragma once

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace hostadm::base {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor &&other) noexcept : descriptor_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            reset();
            descriptor_ = other.release();
        }
        return *this;
    }
    ~Descriptor() { reset(); }

    bool is_open() const { return descriptor_ >= 0; }
    explicit operator bool() const { return is_open(); }
    int get() const { return descriptor_; }
    int release() { return std::exchange(descriptor_, -1); }
    // Closes without hiding the errno of what went before.
    void reset() {
        if (!is_open())
            return;
        const int reason = errno;
        ::close(release());
        errno = reason;
    }
    // Where a close may fail and matters, as of a file that was written: 0 or an errno value. The number is
    // free afterwards in any case.
    int close() { return is_open() && ::close(release()) != 0 ? errno : 0; }
    // A path that leads to the open file, for system calls that take no descriptor.
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_ = -1;
};

// The text of a memory file where it lies. The file cannot shrink from then on, so it stays whatever its
// writers do.
class MemoryFileText {
public:
    explicit MemoryFileText(int descriptor);
    ~MemoryFileText();
    MemoryFileText(const MemoryFileText &) = delete;
    MemoryFileText &operator=(const MemoryFileText &) = delete;

    int error() const { return error_; } // 0: it is there
    std::string_view text() const { return {static_cast<const char *>(start_), size_}; }

private:
    int error_ = 0;
    void *start_ = nullptr;
    std::size_t size_ = 0;
};

// All of a seekable file, wherever its offset stands.
std::optional<std::string> read_whole(int descriptor);
// Everything up to the end of a stream.
std::optional<std::string> read_stream(int descriptor);
// False and errno when not everything could be written.
bool write_all(int descriptor, std::string_view text);

} // namespace hostadm::base
