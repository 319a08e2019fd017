// SPDX-License-Identifier: MIT
#include "hostadm.h"
#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "netboot/setup_rplboot",
    .purpose = "make a client's boot files in /rplboot",
    .arguments = {{"client_key", Kind::word,
                   "the name under which the client asks: its Ethernet address as twelve hexadecimal digits",
                   true},
                  {"instruction_set", Kind::word, "instruction set, such as i386", true},
                  {"implementation_arch", Kind::word, "implementation architecture, such as i86pc", true},
                  {"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "its version", true},
                  {"root_dir", Kind::path, "directory above export/exec/INSTRUCTION_SET.NAME_VERSION", false,
                   "/"}},
    .outputs = {{"boot_program", "name of the boot program in /rplboot"}},
};

int work(Call &call) {
    const std::string root_dir = call.get("root_dir") == "/" ? "" : call.get("root_dir");
    call.set("boot_program",
             make_boot_name(call.get("os_version").c_str(), call.get("os_name").c_str(),
                            call.get("instruction_set").c_str(), call.get("implementation_arch").c_str()));
    const int status = setup_rplboot_dir(call.method().c_str(), call.get("client_key").c_str(),
                                         call.get("implementation_arch").c_str(), root_dir.c_str(),
                                         call.get("instruction_set").c_str(), call.get("os_name").c_str(),
                                         call.get("os_version").c_str());
    return status == 0 ? 0 : call.fail("cannot make the links of " + call.get("client_key") + " in /rplboot");
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
