// SPDX-License-Identifier: MIT
// System calls inside this folder: owned descriptors, and failures as one exception that the exported
// functions turn into their status.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace hostadm::tables {

// Why a piece of work ended: the status that the caller is to see.
struct Failure {
    int status;
};

// Makes a system call, again when a signal interrupted it; its failure is thrown.
template <typename Call> auto complete(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0)
            return result;
        if (errno != EINTR)
            throw Failure{-errno};
    }
}

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0)
            ::close(number_);
    }
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    int get() const { return number_; }
    // Closes with a look at the outcome, for a file that was written. An interrupted close has closed.
    void close() {
        if (::close(std::exchange(number_, -1)) != 0 && errno != EINTR)
            throw Failure{-errno};
    }

private:
    int number_ = -1;
};

} // namespace hostadm::tables
