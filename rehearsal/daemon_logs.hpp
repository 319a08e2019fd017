// SPDX-License-Identifier: MIT
// What the daemons write into their logs from now on.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "rehearsal/journal_follower.hpp"

namespace hostadm::rehearsal {

class DaemonLogs {
public:
    // Those of the system below root. Without files of a syslog the journal is followed.
    explicit DaemonLogs(const std::string &root = "");
    // The lines of the daemons that a client boots from, since the last call.
    std::vector<std::string> new_lines();

private:
    std::map<std::string, long long> read_up_to_; // by file
    std::optional<JournalFollower> journal_;      // where no syslog keeps files
};

} // namespace hostadm::rehearsal
