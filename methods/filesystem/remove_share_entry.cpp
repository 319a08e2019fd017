// SPDX-License-Identifier: MIT
// Removes the lines of a directory from the table of shares. Nothing is withdrawn.
#include <string>

#include "base/text.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/line_edits.hpp"
#include "server/named_table.hpp"
#include "server/page.hpp"
#include "server/shares.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "filesystem/remove_share_entry",
    .purpose =
        "remove a directory from the table of shares that are made at boot, the comments on its failed "
        "shares included; nothing is withdrawn now",
    .arguments = {{.name = "pathname", .kind = Kind::path, .purpose = "the directory", .required = true}},
    .outputs = {{"pathname", "the directory, without links and dots"}, changed_output},
    .edits = {share_table},
    .values = {{"pathname", "filesystem/list_share_entries", "path"}},
};

// The comments that force=yes of filesystem/share leaves: the library leaves them for ever.
void remove_failed(const std::string &path) {
    change_named_table(share_table, [&](std::string &text) {
        text = without_lines(text, [&](std::string_view line) {
            const auto words = base::words_of(line);
            return words.size() > 1 && words.front() == "#share" && words.back() == path;
        });
    });
}

bool has_failed(const std::string &path) {
    for (const TableShare &line : table_shares())
        if (line.path == path && line.failed)
            return true;
    return false;
}

int work(Call &call) {
    const std::string path = resolved_share_path(call.get("pathname")), before = read_share_table();
    if (const int status = unsharefs(nullptr, path.c_str(), nullptr, "bootonly", call.method().c_str());
        status != 0)
        return status;
    if (has_failed(path))
        remove_failed(path);
    check_withdrawn(path, {.now = false, .at_boot = true}, false);
    tell_changed(call, read_share_table() != before);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
