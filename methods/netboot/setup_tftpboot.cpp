// SPDX-License-Identifier: MIT
#include "support/local_host.hpp"

#include "hostadm.h"
#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;

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
    std::string architecture = call.get("implementation_arch"); // becomes upper case
    const std::string host = call.given("host") ? call.get("host") : hostadm::support::local_host_name();
    call.set("boot_program", make_boot_name(call.get("os_version").c_str(), call.get("os_name").c_str(),
                                            call.get("instruction_set").c_str(), architecture.c_str()));
    call.progress("making the boot program and the links of " + call.get("address"));
    const int status = setup_tftpboot_dir(call.method().c_str(), host.c_str(), call.get("address").c_str(),
                                          architecture.data(), call.get("install_hierarchy").c_str(),
                                          call.get("instruction_set").c_str(), call.get("os_name").c_str(),
                                          call.get("os_version").c_str());
    return status == 0 ? 0 : call.fail("cannot make the links of " + call.get("address") + " in /tftpboot");
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
