// SPDX-License-Identifier: MIT
// Sets boot parameters of a client.
#include <string>
#include <variant>
#include <vector>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/bootparams.hpp"
#include "server/nameservice.hpp"
#include "server/page.hpp"

using namespace hostadm::method;
using namespace hostadm::server;
using hostadm::server::defect_of;
using hostadm::server::parse_items;

namespace {

const Description description{
    .name = "database/set_bootparams",
    .purpose = "set boot parameters of a client: one as key, server and path, or several as items",
    .arguments = {{.name = "client", .kind = Kind::host, .purpose = "the client", .required = true},
                  {.name = "key",
                   .kind = Kind::word,
                   .purpose = "what to set, such as root, swap or boottype"},
                  {.name = "server", .kind = Kind::host, .purpose = "the server that has it"},
                  {.name = "path", .kind = Kind::text, .purpose = "the path on the server, or a plain value"},
                  {.name = "items",
                   .kind = Kind::text,
                   .purpose = "instead of these three: KEY=SERVER:PATH or KEY=VALUE, separated by blanks"},
                  edited_nameservice},
    .outputs = {changed_output},
    .edits = {"/etc/bootparams"},
    .values = {{"client", "database/list_bootparams", "hostname"}},
};

// What is to be set, or why the arguments do not fit together.
std::variant<std::vector<BootparamsItem>, std::string> requested_items(const Call &call) {
    const bool single = call.given("key") || call.given("server") || call.given("path");
    if (single && call.given("items"))
        return hostadm::base::tr("items takes the place of key, server and path; give one or the other");
    if (call.given("items"))
        return parse_items(call.get("items"));
    if (!call.given("key"))
        return hostadm::base::tr("there is nothing to set; give key with server and path, or items");
    BootparamsItem item{call.get("key"), call.get("server"), call.get("path")};
    if (std::string defect = defect_of(item); !defect.empty())
        return defect;
    return std::vector{item};
}

int work(Call &call) {
    check_nameservice(call);
    const auto requested = requested_items(call);
    if (const auto *defect = std::get_if<std::string>(&requested))
        return call.refuse(*defect);
    const auto &items = std::get<std::vector<BootparamsItem>>(requested);
    if (items.empty())
        return call.refuse(hostadm::base::tr("items names nothing to set"));

    const bool changed = set_client_items(call.get("client"), items);
    tell_changed(call, changed);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
