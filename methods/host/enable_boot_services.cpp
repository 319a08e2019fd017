// SPDX-License-Identifier: MIT
#include "methods/host/boot_services.hpp"

int main(int argc, char **argv) {
    using namespace hostadm::method;
    return hostadm::run_boot_services(
        argc, argv,
        {{.name = "host/enable_boot_services",
          .purpose = "let everything that clients boot from start with this server: reverse ARP, TFTP, boot "
                     "parameters, shares, NFS, and DHCP where PCs are set up",
          .arguments = {{.name = "router",
                         .kind = Kind::address,
                         .purpose = "router that clients are told of; without it they are told 127.0.0.1"},
                        {.name = "now",
                         .kind = Kind::yes_no,
                         .purpose = "start them now as well, in the place of Debian's own",
                         .default_value = "no"}},
          .outputs = {{"changed", "yes, or no when everything was switched on already", true}}},
         "made",
         [](Call &call) { return hostadm::server::enable_boot_services(call.get("router")); }});
}
