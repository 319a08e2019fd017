// SPDX-License-Identifier: MIT
// What the server's own start switches on for the clients that boot from it: units of the service manager, by links and
// settings below /etc/systemd/system, and a record of what was put there, so that it can be taken back exactly.
#pragma once

#include <string>
#include <vector>

namespace hostadm::server {

struct BootServicesChange {
    std::vector<std::string> paths; // made, changed or taken away
    std::vector<std::string> left;  // what somebody else has changed since, and so was not taken away
};

// The router is what the boot parameter daemon tells clients; empty: none. Again it changes only what is missing. Throws
// std::runtime_error, and then everything is as before.
BootServicesChange enable_boot_services(const std::string &router);
BootServicesChange disable_boot_services();

bool has_service_manager();
// Makes a service manager that runs here see it.
void reload_services();
// Has it stop Debian's own services of these daemons, and start those that are switched on; those that run already only
// where the change gave them other settings. The names of all.
std::vector<std::string> start_services(const BootServicesChange &change);

} // namespace hostadm::server
