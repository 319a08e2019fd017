// SPDX-License-Identifier: MIT
// Removes boot parameters of a client.
#include <string>

#include "hostadm/method.hpp"
#include "server/bootparams.hpp"
#include "server/nameservice.hpp"
#include "server/page.hpp"

using namespace hostadm::method;
using namespace hostadm::server;

namespace {

const Description description{
    .name = "database/remove_bootparams",
    .purpose = "remove a client's boot parameters, all of them or one",
    .arguments = {{.name = "client", .kind = Kind::host, .purpose = "the client", .required = true},
                  {.name = "key",
                   .kind = Kind::word,
                   .purpose = "what to remove; without it, the whole entry"},
                  edited_nameservice},
    .outputs = {changed_output},
    .edits = {"/etc/bootparams"},
    .values = {{"client", "database/list_bootparams", "hostname"}},
};

int work(Call &call) {
    check_nameservice(call);
    const std::string client = call.get("client");
    const bool changed =
        call.given("key") ? remove_client_items(client, {call.get("key")}) : remove_client_entry(client);
    tell_changed(call, changed);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
