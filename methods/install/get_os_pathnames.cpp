// SPDX-License-Identifier: MIT
// Finds the root and the boot program of an operating system.
#include "hostadm/method.hpp"
#include "server/packages.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "install/get_os_pathnames",
    .purpose = "where a client's root and boot program lie in an install hierarchy: an export area with "
               "export/exec/INST_SET.NAME_VERSION in it, or a root file system ready to be copied",
    .arguments = {{"inst_set_arch", Kind::word, "instruction set, such as kel4", true},
                  {"imp_arch", Kind::word, "implementation architecture, such as kel4m", true},
                  {"os_prod", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "its version", true},
                  {"dirpath", Kind::path, "the install hierarchy", true}},
    .outputs = {{"root_path", "directory of packages, or tree, that a root is made of", true},
                {"boot_prog", "the boot program", true}},
};

int work(Call &call) {
    const hostadm::server::OsPaths paths =
        hostadm::server::find_os(call.get("dirpath"), {call.get("inst_set_arch"), call.get("imp_arch"),
                                                       call.get("os_prod"), call.get("os_version")});
    call.set("root_path", paths.root_path);
    call.set("boot_prog", paths.boot_prog);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return hostadm::server::run_page(argc, argv, description, work);
}
