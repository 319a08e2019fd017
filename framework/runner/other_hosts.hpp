// SPDX-License-Identifier: MIT
// Running a method on another host, over ssh: `hostadm serve` there takes the request from its standard input,
// greets, and writes the answer to its standard output.
#pragma once

#include <string>
#include <vector>

#include "hostadm/runner.hpp"

namespace hostadm::framework {

// A place to log in to, as ssh takes it: HOST or USER@HOST.
struct Login {
    std::string user; // empty: the one that ssh is set to use
    std::string host;

    std::string text() const { return user.empty() ? host : user + "@" + host; }
};

Login login_of(const std::string &text);
// What is wrong with it, for "the host cannot be ..."; empty: nothing. A good one can never be taken for an
// option.
std::string defect_of(const Login &login);

// Runs the method on them, each given by its number.
void perform_there(const std::vector<Login> &logins, const Request &request, const OtherHosts &how);

} // namespace hostadm::framework
