// SPDX-License-Identifier: MIT
// A file by TFTP, asked for as a boot program does: without any of the later options.
#pragma once

#include <chrono>
#include <string>

namespace hostadm::rehearsal {

struct Fetched {
    bool whole = false;
    bool silent = false; // nobody answered
    std::string content = {};
    std::string reason = {}; // why it is not whole
};

// interface: to be asked from this one; empty: any.
Fetched fetch_by_tftp(const std::string &server, const std::string &file, const std::string &interface,
                      std::chrono::milliseconds patience);

// By which the contents of two files are compared.
std::string fingerprint(const std::string &content);

} // namespace hostadm::rehearsal
