// SPDX-License-Identifier: MIT
// A program of a root file system that this server keeps, run in that: it sees nothing else, has no network and no
// other process, no device but the harmless ones, and of root's rights those over its files alone.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace hostadm::server {

// The tree cannot be entered so, as where root's rights are limited.
class CannotEnterTree : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct TreeProgramEnd {
    int status = 0;     // as a shell tells it
    std::string output; // standard output and error
    bool well() const { return status == 0; }
};

// `words`: the program by its path in the tree, and its arguments. `time_limit` in seconds. Throws CannotEnterTree.
TreeProgramEnd run_in_tree(const std::string &tree, const std::vector<std::string> &words,
                           unsigned time_limit);

} // namespace hostadm::server
