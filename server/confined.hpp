// SPDX-License-Identifier: MIT
// Work in a client's root that cannot leave it. The client may change anything in there between two system calls,
// so commands that take its paths by name run in a process of their own: no symbolic link, device or program of
// the root has any effect there, everything but the root is read-only, /tmp is that process's own, and where the
// kernel has Landlock it may write nowhere else whatever happens.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/beneath.hpp"

namespace hostadm::server {

struct Confinement {
    // Packages may rightly lead through links of the root, such as /bin. Then it is the rest of the system being
    // read-only that holds, and whoever installs them keeps to the root by itself.
    bool links_are_followed = false;
    bool programs_run = false;             // of the stage; never of a root
    std::vector<std::string> sources = {}; // directories to read from; only those below /tmp need to be told
    bool sources_are_clients = false;      // then no link of theirs is followed; all of them are told
};

// Runs the work there and returns its status. What it changes in this process's memory is lost; errors that it
// records are not. Throws std::runtime_error when the work cannot be shut in, is broken off, or throws.
int run_confined(const std::string &root, const std::function<int()> &work, const Confinement &how = {});

// A few files of a client's root as a library operation is to find them. They stand in memory, in the root's place
// while the operation runs: it never sees the root itself, and what it leaves half done is not there either.
class Stage {
public:
    // Where no path of the client's matters, a place that is nobody else's.
    static constexpr const char *nowhere = "/tmp/stage";

    explicit Stage(std::string root = nowhere); // throws std::runtime_error
    const base::Beneath &files() const { return files_; }
    // As run_confined.
    int run(const std::function<int()> &work, const Confinement &how = {}) const;

private:
    std::string root_;
    base::Descriptor mount_;
    base::Beneath files_;
};

} // namespace hostadm::server
