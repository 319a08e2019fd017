// SPDX-License-Identifier: MIT
#include "base/text.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/boot_links.hpp"
#include "server/client_lock.hpp"
#include "server/host_tables.hpp"
#include "server/local_host.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "netboot/setup_tftpboot",
    .purpose = "make a client's boot program and links in /tftpboot",
    .arguments = {{"address", Kind::address, "the client's IPv4 address", true},
                  {"instruction_set", Kind::word, "instruction set, such as kel4", true},
                  {"implementation_arch", Kind::word, "implementation architecture, such as kel4m", true},
                  {"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "its version", true},
                  {"install_hierarchy", Kind::path,
                   "where its boot program is found (see install/get_os_pathnames)", true},
                  {"host", Kind::host, "host that holds the install hierarchy (default: this one)"}},
    .outputs = {{"boot_program", "name of the boot program in /tftpboot"}},
};

int work(Call &call) {
    std::string architecture = base::lower_case(call.get("implementation_arch")); // becomes upper case
    const std::string host = call.given("host") ? call.get("host") : local_host_name();
    const std::string address = call.get("address");
    call.progress("making the boot program and the links of " + address);
    const std::string boot_name = init_tftpboot_dir(
        call.method().c_str(), host.c_str(), address.c_str(), architecture.data(),
        call.get("install_hierarchy").c_str(), base::lower_case(call.get("instruction_set")).c_str(),
        call.get("os_name").c_str(), call.get("os_version").c_str());
    call.set("boot_program", boot_name);
    {
        const SilencedErrors silence; // "rm" finds nothing to remove; what matters is looked at below
        add_tftpboot_dir_client(call.method().c_str(), boot_name.c_str(), address.c_str(),
                                architecture.data());
    }
    const BootLinks links = boot_links_of(address);
    // An old link that could not be removed stays, and counts as made.
    const std::string digits = address_digits(address);
    if (boot_links_state(digits, links) == "yes" && lead_to(links, digits, architecture, boot_name))
        return 0;
    call.fail("cannot make the links of " + address + " in " + tftpboot + " to " + boot_name +
              "; is it read-only or not yours to write, or something else in their place?");
    for (const BootLink &link : links)
        call.left_undone("there is " + (tftpboot + ("/" + link.name)) +
                         "; netboot/cleanup_tftpboot removes it");
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
