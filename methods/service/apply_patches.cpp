// SPDX-License-Identifier: MIT
#include <filesystem>

#include "base/tree_state.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/confined.hpp"
#include "server/page.hpp"
#include "server/roots.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;
namespace fs = std::filesystem;

constexpr const char *patch_tool = HOSTADM_OPTADMIN "/bin/drelpatch";

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
    if (std::error_code error; !fs::exists(patch_tool, error)) {
        call.set("result", "no_patch_tool");
        tell_changed(call, false);
        return 0;
    }
    const auto before = base::state_of_tree(base::Beneath(root));
    call.progress("applying patches to " + root);
    // Patches are packages of a kind, and may rightly lead through links of the root.
    if (run_confined(root, [&] { return apply_patches(root.c_str()); }, {.links_are_followed = true}) == 0) {
        base::Beneath(root).flush();
        call.set("result", "applied");
        tell_changed(call, base::state_of_tree(base::Beneath(root)) != before);
        return 0;
    }
    call.fail("cannot apply the patches to " + root,
              static_cast<int>(Code::system)); // the tool may have failed without a word
    call.left_undone(root + " may have some of the patches; run this again when the cause is mended");
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
