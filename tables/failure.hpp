// SPDX-License-Identifier: MIT
// Failures of system calls inside this folder: one exception that the exported functions turn into their status.
#pragma once

#include <cerrno>

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

} // namespace hostadm::tables
