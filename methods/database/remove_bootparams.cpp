// SPDX-License-Identifier: MIT
// Removes boot parameters of a client.
#include <cerrno>
#include <string>

#include "hostadm/method.hpp"
#include "hostadm/table_edit.hpp"
#include "support/bootparams_file.hpp"
#include "support/edit_failure.hpp"

using namespace hostadm::method;
using namespace hostadm::methods;

namespace {

const Description description{
    .name = "database/remove_bootparams",
    .purpose = "remove a client's boot parameters, all of them or one",
    .arguments = {{.name = "client", .kind = Kind::host, .purpose = "the client", .required = true},
                  {.name = "key",
                   .kind = Kind::word,
                   .purpose = "what to remove; without it, the whole entry"},
                  {.name = "nameservice",
                   .kind = Kind::choice,
                   .purpose = "where they are kept; only /etc/bootparams (ufs) can be edited here",
                   .default_value = "ufs",
                   .choices = {"ufs", "nis", "nis_plus"}}},
    .outputs = {{.name = "changed", .purpose = "yes, or no when there was nothing to remove"}},
};

int work(Call &call) {
    if (call.get("nameservice") != "ufs")
        return call.refuse(
            "the nameservice can only be ufs here; NIS maps are made from the files of their master "
            "server: remove it there and rebuild the map");
    bool changed = false;
    const int status = hostadm::tables::edit_file(bootparams_path, [&](std::string &file) {
        changed = call.given("key") ? remove_items(file, call.get("client"), {call.get("key")})
                                    : remove_client(file, call.get("client"));
        return 0;
    });
    if (status != 0 && status != -ENOENT)
        return call.fail(edit_failure(bootparams_path, status));
    call.set("changed", changed ? "yes" : "no");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
