// SPDX-License-Identifier: MIT
// The page of a request that switches the services on or off that clients boot from.
#pragma once

#include <exception>
#include <functional>
#include <string>

#include "hostadm/method.hpp"
#include "server/boot_services.hpp"

namespace hostadm {

struct BootServicesPage {
    method::Description description; // the columns are the same for all
    const char *done;                // what became of a path
    std::function<server::BootServicesChange(method::Call &)> change;
};

inline int run_boot_services(int argc, char **argv, BootServicesPage page) {
    page.description.columns = {
        {"path", "what was made, changed or taken away"},
        {"result", std::string(page.done) + ", or left because somebody has changed it"}};
    page.description.edits = {"/etc/systemd/system"};
    return method::run(argc, argv, page.description, [&](method::Call &call) {
        try {
            const server::BootServicesChange made = page.change(call);
            for (const std::string &path : made.paths)
                call.row({{"path", path}, {"result", page.done}});
            for (const std::string &path : made.left)
                call.row({{"path", path}, {"result", "left"}});
            call.set("changed", made.paths.empty() ? "no" : "yes");
            if (!made.paths.empty())
                server::reload_services();
            return 0;
        } catch (const std::exception &error) {
            return call.fail(error.what());
        }
    });
}

} // namespace hostadm
