// SPDX-License-Identifier: MIT
// How an adapter fails: an exception whose text is for the administrator, printed by main behind the command's name.
#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>

namespace compat {

class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws "WHAT: text of the error".
[[noreturn]] void fail_with_errno(const std::string &what, int error = errno);

// "NAME: text" on standard error.
void print_complaint(const std::string &name, const std::string &text);

// The answer of the body; what it throws is complained about and gives `failed`.
template <typename Body> int guarded_main(const std::string &name, int failed, Body body) {
    try {
        return body();
    } catch (const std::exception &error) {
        print_complaint(name, error.what());
        return failed;
    }
}

} // namespace compat
