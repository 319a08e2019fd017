// SPDX-License-Identifier: MIT
// The page of a request that switches the services on or off that clients boot from.
#pragma once

#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

#include "base/translation.hpp"
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
        {"path", "what was made, changed or taken away, or the service"},
        {"result", std::string(page.done) + ", left because somebody has changed it, or runs"}};
    page.description.edits = {"/etc/systemd/system", "/tftpboot"};
    page.description.starts = {"/usr/bin/systemctl"};
    return method::run(argc, argv, page.description, [&](method::Call &call) {
        try {
            const bool now = call.get("now") == "yes";
            if (now && !server::has_service_manager())
                throw std::runtime_error(
                    base::tr("no service manager (systemd) runs here that could start services now; leave "
                             "out now=yes, and they start with this server"));
            const server::BootServicesChange made = page.change(call);
            for (const std::string &path : made.paths)
                call.row({{"path", path}, {"result", page.done}});
            for (const std::string &path : made.left)
                call.row({{"path", path}, {"result", "left"}});
            call.set("changed", made.paths.empty() ? "no" : "yes");
            if (!made.paths.empty())
                server::reload_services();
            if (now)
                for (const std::string &service : server::start_services(made))
                    call.row({{"path", service}, {"result", "runs"}});
            return 0;
        } catch (const std::exception &error) {
            return call.fail(error.what());
        }
    });
}

} // namespace hostadm
