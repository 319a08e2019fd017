// SPDX-License-Identifier: MIT
#include <algorithm>
#include <string>
#include <vector>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/bootparams.hpp"
#include "server/client_address.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
#include "server/named_table.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "database/set_host",
    .purpose = "give an address a name in the hosts table; the line of that address is replaced",
    .arguments = {{"address", Kind::address, "IPv4 address", true},
                  {"hostname", Kind::host, "its name", true},
                  {"aliases", Kind::hosts, "further names"},
                  {"table", Kind::path, "the table, for instance that of a client's root", false,
                   "/etc/hosts"}},
    .outputs = {{"replaced", "the names that the address had before, if any"}, changed_output},
    .edits = {"table="},
    .values = {{"hostname", "database/list_hosts", "hostname"},
               {"address", "database/list_hosts", "address"}},
};

std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

std::string names_of(const std::string &address, const std::string &table) {
    const auto entries =
        HostTable(HostTable::Kind::addresses, table).entries_of(read_named_table(table), address, "");
    return entries.empty() ? "" : joined(entries.front().names);
}

std::string wanted_names(const Call &call) {
    std::string names = call.get("hostname");
    std::string aliases = call.get("aliases");
    std::replace(aliases.begin(), aliases.end(), ',', ' ');
    for (const std::string_view alias : base::words_of(aliases))
        names.append(" ").append(alias);
    return names;
}

bool has_localhost(const std::string &names) {
    const auto words = base::words_of(names);
    return std::any_of(words.begin(), words.end(),
                       [](std::string_view word) { return base::lower_case(word) == "localhost"; });
}

// Any host may stand in the table; a client must be one that this server can serve.
void check_address(const std::string &address, const std::string &names) {
    const auto words = base::words_of(names);
    const bool is_clients = std::any_of(words.begin(), words.end(), [](std::string_view name) {
        return !client_items(std::string(name)).empty();
    });
    if (is_clients)
        check_client_address(address);
    else
        check_is_a_hosts(address, base::own_networks());
}

int work(Call &call) {
    const std::string address = call.get("address"), names = wanted_names(call), table = call.get("table");
    if (table == hosts_table().path())
        check_address(address, names);
    const std::string before = names_of(address, table);
    if (has_localhost(before) && !has_localhost(names))
        fail(Code::table, base::tr("the line of {1} in {2} would lose the name localhost; edit it by hand",
                                   address, table));
    if (before != names)
        edit_named_table(table, [&](const std::string &path) {
            return set_hosts(path.c_str(), address.c_str(), names.c_str());
        });
    if (const std::string after = names_of(address, table); after != names)
        fail(Code::no_effect,
             base::tr("{1} has the names \"{2}\" in {3}, not {4}; somebody else may be changing it", address,
                      after, table, names));
    if (!before.empty() && before != names)
        call.set("replaced", before);
    tell_changed(call, before != names);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
