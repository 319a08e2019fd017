// SPDX-License-Identifier: MIT
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/boot_area.hpp"
#include "server/claims.hpp"
#include "server/page.hpp"

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
    .outputs = {{"boot_program", "name of the boot program in /tftpboot"}, changed_output},
    .edits = {"/tftpboot"},
    .values = {{"address", "client/list", "address"},
               {"os_name", "service/list", "os_name"},
               {"os_version", "service/list", "os_version"},
               {"instruction_set", "service/list", "instruction_set"}},
};

// What there is of the client's links when they could not be made.
void tell_links(Call &call, const std::string &address) {
    for (const BootLink &link : boot_links_of(address))
        if (!link.target.empty())
            call.left_undone(
                base::tr("there is {1}/{2}; netboot/cleanup_tftpboot removes it", tftpboot, link.name));
}

int work(Call &call) {
    const std::string address = call.get("address"), method = call.method();
    const Identity identity{base::lower_case(call.get("instruction_set")),
                            base::lower_case(call.get("implementation_arch")), call.get("os_name"),
                            call.get("os_version")};
    const Claims claims(method, address, {{Claim::Kind::address, address}});
    call.progress(base::tr("making the boot program and the links of {1}", address));
    make_tftpboot_dir(method.c_str());
    const BootAreaLock lock;
    const auto [boot_name, copied] =
        initialise_boot_area(lock, method, identity, call.get("host"), call.get("install_hierarchy"));
    call.set("boot_program", boot_name);
    Journal journal; // what is made in part is told, not taken back
    try {
        const bool linked =
            ensure_boot_links(lock, method, address, identity.implementation_arch, boot_name, journal);
        tell_changed(call, copied || linked);
    } catch (const Failure &) {
        tell_links(call, address);
        throw;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
