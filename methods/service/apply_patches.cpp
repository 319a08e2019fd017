// SPDX-License-Identifier: MIT
#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "base/tree_state.hpp"
#include "hostadm/method.hpp"
#include "server/page.hpp"
#include "server/patches.hpp"
#include "server/roots.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/apply_patches",
    .purpose = "apply the stored patches to a client's root",
    .arguments = {{.name = "root",
                   .kind = Kind::path,
                   .purpose = "the client's root directory on this server",
                   .required = true}},
    .outputs = {{"result", "applied, or no_patch_tool when there is none here"}, changed_output},
    .edits = {"root="},
};

int work(Call &call) {
    const std::string root = call.get("root");
    if (const std::string defect = defect_of_deep_root(root); !defect.empty())
        fail(Code::unusable, defect);
    if (!has_patch_tool()) {
        call.set("result", "no_patch_tool");
        tell_changed(call, false);
        return 0;
    }
    const auto before = base::state_of_tree(base::Beneath(root));
    if (apply_stored_patches(call, root)) {
        call.set("result", "applied");
        tell_changed(call, base::state_of_tree(base::Beneath(root)) != before);
        return 0;
    }
    call.left_undone(
        base::tr("{1} may have some of the patches; run this again when the cause is mended", root));
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
