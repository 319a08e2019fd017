// SPDX-License-Identifier: MIT
#include "compat/support/failure.hpp"

#include <cstdio>
#include <cstring>

namespace compat {

void fail_with_errno(const std::string &what, int error) {
    throw Failure(what + ": " + std::strerror(error));
}

void print_complaint(const std::string &name, const std::string &text) {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), text.c_str());
}

} // namespace compat
