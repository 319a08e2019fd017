// SPDX-License-Identifier: MIT
// Sets a line of the table of shares. Nothing is shared.
#include <string>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/set_share_entry",
    .purpose = "add a line to the table of shares that are made at boot, or replace the line of the same "
               "directory; nothing is shared now",
    .arguments = {{.name = "pathname", .kind = Kind::path, .purpose = "directory to share", .required = true},
                  {.name = "options",
                   .kind = Kind::options,
                   .purpose = "who may do what: ro, rw, rw=client1:client2, root=client1, anon=0",
                   .default_value = "rw"},
                  {.name = "description", .kind = Kind::text, .purpose = "words about the share"}},
    .outputs = {{"pathname", "the directory, without links and dots"}, changed_output},
    .edits = {share_table},
    .values = {{"pathname", "filesystem/list_share_entries", "path"}},
};

int work(Call &call) {
    const std::string path = resolved_share_path(call.get("pathname")), before = read_share_table();
    if (const int status =
            sharefs(nullptr, call.get("options").c_str(), as_one_word(call.get("description")).c_str(),
                    path.c_str(), "bootonly", call.method().c_str(), 0);
        status != 0)
        return status;
    check_shared(path, call.get("options"), {.now = false, .at_boot = true}, false);
    tell_changed(call, read_share_table() != before);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
