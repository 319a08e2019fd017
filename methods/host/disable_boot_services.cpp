// SPDX-License-Identifier: MIT
#include <exception>
#include <string>

#include "hostadm/method.hpp"
#include "server/boot_services.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "host/disable_boot_services",
    .purpose = "take back what host/enable_boot_services has switched on",
    .outputs = {{"changed", "yes, or no when nothing was switched on", true}},
    .columns = {{"path", "what was taken away, or was left because somebody has changed it"},
                {"result", "removed or left"}},
    .edits = {"/etc/systemd/system"},
};

int work(Call &call) {
    try {
        const auto change = hostadm::server::disable_boot_services();
        for (const std::string &path : change.paths)
            call.row({{"path", path}, {"result", "removed"}});
        for (const std::string &path : change.left)
            call.row({{"path", path}, {"result", "left"}});
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
