// SPDX-License-Identifier: MIT
#include <exception>
#include <string>

#include "hostadm/method.hpp"
#include "server/boot_services.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "host/enable_boot_services",
    .purpose = "let everything that clients boot from start with this server: reverse ARP, TFTP, boot "
               "parameters, shares, NFS",
    .arguments = {{.name = "router",
                   .kind = Kind::address,
                   .purpose = "router that clients are told of; without it they are told 127.0.0.1"}},
    .outputs = {{"changed", "yes, or no when everything was switched on already", true}},
    .columns = {{"path", "what was made or changed"}},
    .edits = {"/etc/systemd/system"},
};

int work(Call &call) {
    try {
        const auto change = hostadm::server::enable_boot_services(call.get("router"));
        for (const std::string &path : change.paths)
            call.row({{"path", path}});
        call.set("changed", change.paths.empty() ? "no" : "yes");
        if (!change.paths.empty())
            hostadm::server::reload_services();
        return 0;
    } catch (const std::exception &error) {
        return call.fail(error.what());
    }
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
