// SPDX-License-Identifier: MIT
// The NFS server that the shares are handed to: the one in use on this host, found by itself.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/share_options.hpp"

namespace compat {

struct Export {
    unsigned number = 0;
    std::string path;
    hostadm::base::ShareOptions options;
};

class NfsServer {
public:
    virtual ~NfsServer() = default;

    virtual bool is_kernel() const = 0;
    virtual std::string exports_path() const = 0;
    // The text of that file. Names of clients are looked up now; a client without an address is left out
    // until the file is written again.
    virtual std::string exports_text(const std::vector<Export> &exports) const = 0;
    // Makes a running server read the file; nothing to do for one that does not run.
    virtual void reload() const = 0;
};

// The server that runs, else the one that is installed (nfs-ganesha before the kernel's). Throws a Failure
// that says what to install when there is none.
std::unique_ptr<NfsServer> find_nfs_server();

// The same, or null when none is installed.
std::unique_ptr<NfsServer> installed_nfs_server();

inline constexpr const char *ganesha_program = "/usr/bin/ganesha.nfsd";
inline constexpr const char *ganesha_process = "ganesha.nfsd";
inline constexpr const char *ganesha_settings = "/etc/ganesha/share.conf";
inline constexpr const char *ganesha_exports = "/etc/ganesha/share-exports.conf";

// Writes the exports of everything shared now for the server;
// true when the file changed. The caller holds the share lock.
bool publish_shares(const NfsServer &server);

} // namespace compat
