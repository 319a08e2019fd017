// SPDX-License-Identifier: MIT
// Clients' root directories.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "hostadm/method.hpp"

namespace hostadm::server {

// "/a,/b" as {"/a", "/b"}, each without trailing slashes.
std::vector<std::string> split_paths(const std::string &list);

// Fills an existing root through create_clnt_root: from directories of packages, or for a 4.x release from
// trees. What the commands said is in the record only if one of them failed. 0, or with the failure recorded
// 1 when nothing came of it, 2 when the root may hold part of it.
int fill_root(method::Call &call, const std::string &root, const std::string &os_name,
              const std::string &os_version, const std::vector<std::string> &sources);

// Copies a tree, whatever its release, into an existing root: modes, owners, times, links, devices and holes
// stay as they are. 0, or 1 with the failure recorded. A tree that is a client's may change meanwhile: none of its links
// is followed.
int copy_tree(method::Call &call, const std::string &tree, const std::string &root, bool of_client = false);

// Installs packages of a directory into the area of an OS service, with this base directory in it. 0, or 1 with the
// failure recorded.
int install_in_area(method::Call &call, const std::string &area, const std::string &base,
                    const std::string &directory, const std::vector<std::string> &packages);

// What is shared for the sake of a file of a client: the folder that holds it, if that bears the client's
// name, since many NFS servers share folders only; else the file itself.
std::string share_path_of(const std::string &file, const std::string &client);

// A path in one spelling, whatever its slashes and the symbolic links above its last name, which need not
// exist. Only such paths can be compared.
std::string real_path_of(const std::string &path);
// The same of many paths: each directory above them is looked at once.
class RealPaths {
public:
    std::string of(const std::string &path);

private:
    const std::string &directory(const std::string &path);

    std::map<std::string, std::string> known_;
};

// Whether one path is the other, or lies below it.
bool is_at_or_below(const std::string &path, const std::string &directory);

// What keeps a directory from being a client's root; empty: nothing.
std::string defect_of_root(const std::string &root);
// The same where files are written all over the root: it must not be a folder of the server, such as /etc.
std::string defect_of_deep_root(const std::string &root);
// What keeps a root from being filled from a directory,
// which a copy into itself would destroy; empty: nothing.
std::string defect_of_source(const std::string &root, const std::string &source);
// The client writes to its root as well: no link in there may lead work on ROOT BELOW to this server's own
// files. What is wrong; empty: nothing.
std::string way_out_of_root(const std::string &root, const std::string &below);

// Whether a directory is "/" or lies just below it, where no client's root belongs.
bool is_near_server_root(const std::string &directory);

// Removes a directory and all that is in it. Throws std::runtime_error: when it is near the server's root,
// when something is mounted in it, when an entry cannot be removed.
void remove_tree(const std::string &directory);
// Only what is in it. Like the next one it takes a real path, in which no link may stand by now, and throws
// std::runtime_error when something cannot be removed.
void remove_contents(const std::string &directory);
// False: nothing was there.
bool remove_file(const std::string &path);

} // namespace hostadm::server
