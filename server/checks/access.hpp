// SPDX-License-Identifier: MIT
// What one client may do with a directory: by the options of a share, and by what the NFS server was told.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace hostadm::server {

struct Access {
    bool read = false, write = false;
    bool root = false; // its root stays root
};

// A client as access lists may mean it.
struct Caller {
    std::uint32_t address = 0;      // in host order; 0: none
    std::vector<std::string> names; // all of them, in lower case
};

// By System V options such as rw=c1:c2,root=c1.
Access access_by_options(std::string_view options, const Caller &caller);
// The names in the access lists of such options.
std::vector<std::string> clients_in_options(std::string_view options);

// What an NFS server exports, and whence that is known.
struct ExportClient {
    std::vector<std::string> hosts; // addresses, networks, names, patterns
    Access access;
    bool version3 = true;
};
struct Export {
    std::string path, file;
    std::size_t line = 0;
    std::vector<ExportClient> clients; // the first that means the client counts
    ExportClient others;               // for everybody else
};

struct NfsSettings {
    bool version3 = true;
    std::optional<std::uint16_t> nfs_port;
    std::string bound_to; // an address, when it serves at no other
    std::string defect;   // why the settings cannot be relied on: a file that is missing
    std::string place;    // of what is wrong
    bool waits = false;   // for clients' locks after each start: writes are held up for 90 seconds
    std::vector<Export> exports;
    std::unordered_map<std::string, std::size_t> by_path; // places in `exports`
};

// The settings of nfs-ganesha, with the files that they include.
NfsSettings read_ganesha(const std::string &file);
// The kernel's server: the table of what is exported now, or what is to be after a start.
NfsSettings read_exports_now(const std::string &table = "/var/lib/nfs/etab");
NfsSettings read_exports_at_boot();

// The export that covers a path, the longest; and what it lets a client do.
const Export *export_of(const NfsSettings &settings, const std::string &path);
Access access_by_export(const Export &shared, const Caller &caller);

} // namespace hostadm::server
