// SPDX-License-Identifier: MIT
// One change of a client at a time.
#pragma once

#include <string>

namespace hostadm::server {

// A name that one process only can hold, and that goes with the process; it leaves no file. Throws
// std::runtime_error when somebody else holds it.
class ClientLock {
public:
    explicit ClientLock(const std::string &client);
    ~ClientLock();
    ClientLock(const ClientLock &) = delete;
    ClientLock &operator=(const ClientLock &) = delete;

private:
    int socket_;
};

// Standard error goes nowhere while this lives:
// for library functions whose commands complain of what is no failure.
class SilencedErrors {
public:
    SilencedErrors();
    ~SilencedErrors();
    SilencedErrors(const SilencedErrors &) = delete;
    SilencedErrors &operator=(const SilencedErrors &) = delete;

private:
    int saved_;
};

} // namespace hostadm::server
