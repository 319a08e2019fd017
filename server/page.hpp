// SPDX-License-Identifier: MIT
// What every method's page has in common.
#pragma once

#include <functional>
#include <vector>

#include "hostadm/method.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

// The output of a method that changes something.
inline const method::Field changed_output{"changed", "yes, or no when everything was so already"};
void tell_changed(method::Call &call, bool changed);

// Where a shell finds what to complete the arguments of many pages with.
inline const std::vector<method::Source> client_values{{"hostname", "client/list_names", "name"}};
inline const std::vector<method::Source> service_values{
    {"os_name", "service/list", "os_name"},
    {"os_version", "service/list", "os_version"},
    {"instruction_set", "service/list", "instruction_set"}};
inline const std::vector<method::Source> new_client_values{
    {"hostname", "database/list_hosts", "hostname"},
    {"hostname", "database/list_ethers", "hostname"},
    {"address", "database/list_hosts", "address"},
    {"ethernet", "database/list_ethers", "ethernet"},
    {"os_name", "service/list", "os_name"},
    {"os_version", "service/list", "os_version"},
    {"instruction_set", "service/list", "instruction_set"}};

// Does the work, and records a failure with its code. Gives the method's status.
int guarded(method::Call &call, const std::function<int()> &work);

// The main() of a page: method::run, with failures recorded, and files made with the usual modes. One that edits anything
// takes back first what a run that was cut off has left.
int run_page(int argc, char **argv, const method::Description &description,
             const std::function<int(method::Call &)> &work);

} // namespace hostadm::server
