// SPDX-License-Identifier: MIT
// The NFS server as clients meet it: the programs of mounts and of files that the port mapper leads to, whichever
// process or kernel is behind them.
#pragma once

#include <string>

namespace hostadm::server {

// What the port mapper of this host knows of the program that a daemon such as mountd or nfsd serves.
enum class Registered {
    yes,
    no,
    no_mapper, // none answers
    by_no_rpc  // it is no such daemon
};
Registered is_registered(const std::string &daemon);

// Starts mountd and nfsd where they are not seen, and returns as soon as they answer clients; or when they have ended, or
// after three seconds. The library would wait for three seconds whatever happens.
void ensure_nfs_server();

} // namespace hostadm::server
