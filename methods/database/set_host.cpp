// SPDX-License-Identifier: MIT
#include <algorithm>
#include <string>

#include "base/text.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
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
                  {"table", Kind::path, "the table to edit", false, "/etc/hosts"}},
    .outputs = {{"replaced", "the names that the address had before, if any"}, changed_output},
    .edits = {"table="},
};

// The names of the address in the table.
std::string names_of(const std::string &address, const std::string &table) {
    std::string text, names;
    hostadm::tables::read_file(table, text);
    base::for_each_line(text, [&](std::string_view line) {
        const std::string_view entry = base::trimmed(line.substr(0, line.find('#')));
        if (names.empty() && base::first_word(entry) == address)
            names = base::trimmed(entry.substr(address.size()));
    });
    return names;
}

int work(Call &call) {
    const std::string address = call.get("address"), name = call.get("hostname"), table = call.get("table");
    const std::string before = names_of(address, table);
    const auto words = base::words_of(before);
    if (base::lower_case(name) != "localhost" &&
        std::find(words.begin(), words.end(), "localhost") != words.end())
        fail(Code::table,
             "the line of " + address + " in " + table + " would lose the name localhost; edit it by hand");
    const int status = set_hosts(table.c_str(), address.c_str(), name.c_str());
    if (status != 0)
        fail_edit(table, status);
    if (const std::string after = names_of(address, table); after != name)
        fail(Code::no_effect, address + " has the names \"" + after + "\" in " + table + ", not " + name +
                                  "; somebody else may be changing it");
    if (!before.empty() && before != name)
        call.set("replaced", before);
    tell_changed(call, before != name);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
