// SPDX-License-Identifier: MIT
// An OS service that is asked for, what stands in its way, how it is laid out, and how it goes again.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/packages.hpp"
#include "server/report.hpp"
#include "server/services.hpp"

namespace hostadm::server {

// A directory of packages, and those of it that are for the instruction set.
struct PackagesToTake {
    std::string directory;
    std::vector<SpooledPackage> packages;
};

struct NewService {
    Service service; // as it is to be; what it makes is told by the run's journal
    bool is_known = false;

    std::string tree;                          // of which roots are copied, or
    std::vector<PackagesToTake> packages = {}; // of which they are made
    std::string executables = {};              // a tree to copy; empty: those of the packages, if any
    std::map<std::string, std::string> boot_programs = {}; // files by implementation, or "all"
    std::string patches = {};               // a store to take those of the instruction set from
    std::vector<std::string> left_out = {}; // packages of other instruction sets

    std::vector<Claim> claims() const;
};

// From the arguments of a method. Throws Failure when the request makes no sense.
NewService read_new_service(const method::Call &call);

// Lays out what is missing of it. Throws Failure.
void lay_out(method::Call &call, const NewService &wanted, Journal &journal, Report &report);

// Takes away what was made for a service; what it shares with another goes over to that. Its record goes last of the
// files, because it alone tells a second run what a first one has left. Throws Failure.
void remove_service(method::Call &call, const Service &service, Report &report);
// Throws Failure, which names them, when clients use it, or when a directory of it is shared with others.
void check_nobody_uses(const Service &service);

} // namespace hostadm::server
