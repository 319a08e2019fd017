// SPDX-License-Identifier: MIT
// What the daemons write into their logs from now on.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace hostadm::rehearsal {

class DaemonLogs {
public:
    // Those of the system below root.
    explicit DaemonLogs(const std::string &root = "");
    // The lines of the daemons that a client boots from, since the last call.
    std::vector<std::string> new_lines();

private:
    std::map<std::string, long long> read_up_to_; // by file
};

} // namespace hostadm::rehearsal
