// SPDX-License-Identifier: MIT
// The options by which a command does its work on other hosts, and telling what came of it on each.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands.hpp"

namespace hostadm::cli {

struct HostOptions {
    std::vector<std::string> lists; // each HOST[,HOST...]
    framework::OtherHosts reach;
};

// Adds --host with this description, and what goes with it.
void add_host_options(CLI::App &command, HostOptions &asked, const std::string &description);

// What came of the work on one host, in the parts of which a report consists.
struct OnHost {
    framework::Outcome outcome;
    Json more = Json::object();                // goes into its JSON object beside what every outcome has
    std::function<void()> print = [] {};       // what else it says, for people
    std::optional<std::string> complaint = {}; // why it failed all the same
};

// Does the work on the hosts that were asked for, and tells what came of it; `take` makes the parts of an outcome.
// Gives the exit status of all, or nothing where no host was asked for.
std::optional<int> on_hosts(const Invocation &invocation, HostOptions &asked,
                            const std::function<OnHost(framework::Outcome)> &take,
                            framework::Values settings = {});

} // namespace hostadm::cli
