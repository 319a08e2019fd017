// SPDX-License-Identifier: MIT
#include "server/checks/client_needs.hpp"

#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace hostadm::server {

std::vector<Need> needs_of(const Snapshot &server, const CheckedClient &client) {
    std::vector<Need> needs;
    for (const char *key : {"root", "swap", "dump"}) {
        const BootItem *item = server.entry_of(client).item(key);
        if (item == nullptr || !item->path.starts_with('/'))
            continue;
        struct stat found {};
        const bool exists = stat(item->path.c_str(), &found) == 0;
        if (!exists && !server.is_this_server(item->server))
            continue;
        std::string path = std::filesystem::path(item->path).lexically_normal();
        while (path.size() > 1 && path.ends_with('/'))
            path.pop_back();
        needs.push_back({key, path, std::string_view(key) == "root" ? Stage::root : Stage::swap, exists,
                         exists && !S_ISDIR(found.st_mode)});
    }
    return needs;
}

} // namespace hostadm::server
