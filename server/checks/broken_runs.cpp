// SPDX-License-Identifier: MIT
// Work on a client that the power cut off, or somebody killed.

#include "server/broken_runs.hpp"

#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

using base::tr;

Findings broken_runs_of_server(const Snapshot &server) {
    Findings found;
    for (const BrokenRun &run : server.broken_runs)
        found.push_back(
            {.severity = Severity::error,
             .stage = Stage::parameters,
             .client = run.subject,
             .where = run.path,
             .what = tr("{1} of {2} was cut off in the middle", run.method, run.subject),
             .why = tr("the tables may name {1} in two ways, by which it does not boot", run.subject),
             // Whatever edits anything takes it back first.
             .repair = "hostadm run " + run.method + " hostname=" + run.subject + " ..."});
    return found;
}

} // namespace hostadm::server
