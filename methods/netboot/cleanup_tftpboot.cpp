// SPDX-License-Identifier: MIT
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/boot_links.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "netboot/cleanup_tftpboot",
    .purpose = "remove a client's links from /tftpboot; boot programs stay",
    .arguments = {{"address", Kind::address, "the client's IPv4 address", true}},
};

int work(Call &call) {
    const std::string address = call.get("address");
    if (hostadm::server::boot_links_of(address).empty()) // rm would complain of it
        return 0;
    if (cleanup_tftpboot_dir(call.method().c_str(), address.c_str()) != 0)
        return call.fail("cannot remove the links of " + address + " from /tftpboot");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
