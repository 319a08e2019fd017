// SPDX-License-Identifier: MIT
#include "server/checks/daemon_findings.hpp"

#include <algorithm>
#include <unistd.h>

namespace hostadm::server {

std::optional<Finding> defect_of_daemon(const Wanted &wanted) {
    Finding finding{.stage = wanted.stage, .where = wanted.name, .why = wanted.why, .repair = wanted.start};
    const bool installed = std::any_of(wanted.programs.begin(), wanted.programs.end(),
                                       [](const auto &path) { return access(path.c_str(), X_OK) == 0; });
    if (wanted.found.empty() && !installed) {
        if (wanted.package.empty()) {
            finding.what = wanted.name + " is not installed, and Debian has no package of it";
            finding.repair = "install -m 755 PROGRAM " + wanted.programs.front() + " && " + wanted.start;
            return finding;
        }
        finding.what = wanted.name + " is not installed (package " + wanted.package + ")";
        finding.repair = "apt-get install " + wanted.package + " && " + wanted.start;
        return finding;
    }
    if (wanted.found.empty()) {
        finding.what = wanted.name + " does not run";
        return finding;
    }
    const Daemon &daemon = *wanted.found.front();
    const std::string pid = std::to_string(daemon.process.pid);
    finding.where += ", process " + pid;
    if (daemon.defunct()) {
        finding.what = wanted.name + " has ended and is defunct";
        return finding;
    }
    if (daemon.stopped()) {
        finding.what = wanted.name + " is stopped and answers nobody";
        finding.repair = "kill -CONT";
        for (const Daemon *one : wanted.found)
            if (one->stopped())
                finding.repair += " " + std::to_string(one->process.pid);
        return finding;
    }
    if (daemon.other_network) {
        finding.what = wanted.name + " runs in a network name space of its own and hears no client";
        finding.repair = "kill " + pid + " && " + wanted.start;
        return finding;
    }
    return std::nullopt;
}

} // namespace hostadm::server
