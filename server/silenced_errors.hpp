// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "base/descriptor.hpp"

namespace hostadm::server {

// Standard error goes nowhere while this lives: for library functions whose commands complain of what is no
// failure. What matters is looked at afterwards.
class SilencedErrors {
public:
    SilencedErrors() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
        const base::Descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
        if (saved_.is_open() && nowhere.is_open())
            dup2(nowhere.get(), STDERR_FILENO);
    }
    ~SilencedErrors() {
        if (saved_.is_open())
            dup2(saved_.get(), STDERR_FILENO);
    }
    SilencedErrors(const SilencedErrors &) = delete;
    SilencedErrors &operator=(const SilencedErrors &) = delete;

private:
    base::Descriptor saved_;
};

} // namespace hostadm::server
