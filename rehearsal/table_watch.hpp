// SPDX-License-Identifier: MIT
// Waiting until something changes that a boot depends on: a table, a setting, the boot directory, a daemon.
#pragma once

#include <map>
#include <string>

#include "base/descriptor.hpp"

namespace hostadm::rehearsal {

class TableWatch {
public:
    // root: the client's, whose files count as well; may be empty. Throws std::runtime_error.
    explicit TableWatch(const std::string &root);
    // Returns what has changed, some time after the last of several changes at once.
    std::string wait();

private:
    void watch(const std::string &directory);
    std::string changed_file();

    base::Descriptor events_;
    std::map<int, std::string> directories_; // by the number of their watch
};

} // namespace hostadm::rehearsal
