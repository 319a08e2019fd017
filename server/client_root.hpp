// SPDX-License-Identifier: MIT
// Which paths of this server lie in a client's root, where the client may lay any link.
#pragma once

#include <string>

#include "base/beneath.hpp"

namespace hostadm::server {

// The root of a client that a path leads into: one of which bootparams tells, or a folder in /export/root. Empty:
// none.
std::string client_root_of(const std::string &path);

// As real_path_of, but what lies in a client's root, or in the root that a client is about to get, keeps its
// spelling below that: links there are the client's, and lead no work of the server anywhere.
std::string path_on_server(const std::string &path, const std::string &new_root = "");

// The folder of a file that a run makes or removes: in a client's root no link leads out of it; elsewhere they are
// the server's own. Throws base::BeneathError.
base::Beneath folder_on_server(const std::string &path);

// The folder of a path, such as a table or a device. In a client's root its links lead where the client sees
// them; elsewhere the path must be a real one. Throws base::BeneathError.
base::Beneath folder_that_holds(const std::string &path);
// The same of a folder itself.
base::Beneath folder_at(const std::string &path);

} // namespace hostadm::server
