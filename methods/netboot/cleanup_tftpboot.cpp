// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/boot_area.hpp"
#include "server/claims.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "netboot/cleanup_tftpboot",
    .purpose = "remove a client's links from /tftpboot; boot programs stay",
    .arguments = {{"address", Kind::address, "the client's IPv4 address", true}},
    .outputs = {changed_output},
    .edits = {"/tftpboot"},
    .values = {{"address", "client/list", "address"}},
};

int work(Call &call) {
    const std::string address = call.get("address");
    const Claims claims(call.method(), address, {{Claim::Kind::address, address}});
    const bool any = !boot_links_of(address).empty();
    if (any)
        remove_boot_links(BootAreaLock(), call.method(), address);
    tell_changed(call, any);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
