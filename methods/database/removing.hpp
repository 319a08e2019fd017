// SPDX-License-Identifier: MIT
// Removing lines of the hosts table and of the Ethernet table: the same work, told in the words of each.
#pragma once

#include <string>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/host_tables.hpp"
#include "server/page.hpp"

namespace hostadm {

// The line is named by the argument `key`, such as "address", by hostname, or by both.
inline int remove_lines(method::Call &call, server::HostTable::Kind kind, const std::string &key) {
    const std::string value = call.get(key), name = call.get("hostname");
    if (value.empty() && name.empty())
        return call.refuse(base::tr("say which line: give {1}, hostname or both", key));
    const server::HostTable table(kind, call.get("table"));
    const server::RemovedEntries removed = server::remove_entries(table, value, name);
    if (removed.changed)
        call.set("removed", removed.names);
    server::tell_changed(call, removed.changed);
    return 0;
}

} // namespace hostadm
