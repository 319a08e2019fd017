// SPDX-License-Identifier: MIT
#include "methods/host/boot_services.hpp"

int main(int argc, char **argv) {
    using namespace hostadm::method;
    return hostadm::run_boot_services(
        argc, argv,
        {{.name = "host/disable_boot_services",
          .purpose = "take back what host/enable_boot_services has switched on",
          .outputs = {{"changed", "yes, or no when nothing was switched on", true}}},
         "removed",
         [](Call &) { return hostadm::server::disable_boot_services(); }});
}
