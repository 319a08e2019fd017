// SPDX-License-Identifier: MIT
#include <string>
#include <vector>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
#include "server/named_table.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "database/set_ether",
    .purpose = "tell whose an Ethernet address is; the line of that address is replaced",
    .arguments = {{"ethernet", Kind::ethernet, "Ethernet address, in any usual spelling", true},
                  {"hostname", Kind::host, "whose it is", true},
                  {"table", Kind::path, "the table", false, "/etc/ethers"}},
    .outputs = {{"replaced", "whose it was before, if anybody's"}, changed_output},
    .edits = {"table="},
    .values = {{"hostname", "database/list_ethers", "hostname"},
               {"ethernet", "database/list_ethers", "ethernet"},
               {"hostname", "database/list_hosts", "hostname"}},
};

std::vector<HostTable::Entry> entries_of(const HostTable &table, const std::string &ethernet,
                                         const std::string &name) {
    return table.entries_of(read_named_table(table.path()), ethernet, name);
}

// A host has one address here: of two, only the first found would be answered.
void check_name(const HostTable &table, const std::string &ethernet, const std::string &name) {
    for (const auto &[other, names] : entries_of(table, "", name))
        if (entries_of(table, ethernet, name).empty())
            fail(Code::taken,
                 hostadm::base::tr("{1} has {2} in {3}; remove that first (database/remove_ether), or "
                                   "give the client its new address with client/change",
                                   name, other, table.path()));
}

int work(Call &call) {
    const std::string ethernet = call.get("ethernet"), name = call.get("hostname"), path = call.get("table");
    const HostTable table(HostTable::Kind::ethernets, path);
    check_name(table, ethernet, name);
    const auto before = entries_of(table, ethernet, "");
    const bool is_so = !before.empty() && !entries_of(table, ethernet, name).empty();
    // The line is found by the spelling that the table has.
    const std::string key = before.empty() ? ethernet : before.front().key;
    if (!is_so)
        edit_named_table(path, [&](const std::string &file) {
            return set_hosts(file.c_str(), key.c_str(), name.c_str());
        });
    if (entries_of(table, ethernet, name).empty())
        fail(Code::no_effect, hostadm::base::tr("{1} is not {2}'s in {3}; somebody else may be changing it",
                                                ethernet, name, path));
    if (!is_so && !before.empty())
        call.set("replaced", before.front().names.front());
    tell_changed(call, !is_so);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
