// SPDX-License-Identifier: MIT
#include "server/checks/daemon_findings.hpp"

#include <algorithm>
#include <unistd.h>

#include "base/translation.hpp"

namespace hostadm::server {

bool is_installed(const Wanted &wanted) {
    return std::any_of(wanted.programs.begin(), wanted.programs.end(),
                       [](const auto &path) { return access(path.c_str(), X_OK) == 0; });
}

std::optional<Finding> defect_of_daemon(const Wanted &wanted) {
    Finding finding{.stage = wanted.stage, .where = wanted.name, .why = wanted.why, .repair = wanted.start};
    if (wanted.found.empty() && !is_installed(wanted)) {
        if (wanted.package.empty()) {
            finding.what = base::tr("{1} is not installed, and Debian has no package of it", wanted.name);
            finding.repair = "install -m 755 PROGRAM " + wanted.programs.front() + " && " + wanted.start;
            return finding;
        }
        finding.what = base::tr("{1} is not installed (package {2})", wanted.name, wanted.package);
        finding.repair = "apt-get install " + wanted.package + " && " + wanted.start;
        return finding;
    }
    if (wanted.found.empty()) {
        finding.what = base::tr("{1} does not run", wanted.name);
        return finding;
    }
    const Daemon &daemon = *wanted.found.front();
    const std::string pid = std::to_string(daemon.process.pid);
    finding.where = base::tr("{1}, process {2}", wanted.name, pid);
    if (daemon.defunct()) {
        finding.what = base::tr("{1} has ended and is defunct", wanted.name);
        return finding;
    }
    if (daemon.stopped()) {
        finding.what = base::tr("{1} is stopped and answers nobody", wanted.name);
        finding.repair = "kill -CONT";
        for (const Daemon *one : wanted.found)
            if (one->stopped())
                finding.repair += " " + std::to_string(one->process.pid);
        return finding;
    }
    if (daemon.other_network) {
        finding.what =
            base::tr("{1} runs in a network name space of its own and hears no client", wanted.name);
        finding.repair = "kill " + pid + " && " + wanted.start;
        return finding;
    }
    return std::nullopt;
}

} // namespace hostadm::server
