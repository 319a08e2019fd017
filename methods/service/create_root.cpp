// SPDX-License-Identifier: MIT
#include "base/translation.hpp"
#include "base/tree_state.hpp"
#include "hostadm/method.hpp"
#include "server/page.hpp"
#include "server/roots.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/create_root",
    .purpose = "fill a client's root from packages, or for a 4.x release from ready-made trees",
    .arguments = {{"rootpath", Kind::path, "the root to fill, an existing directory", true},
                  {"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "its version; 4.x copies, any other installs packages", true},
                  {"sources", Kind::path,
                   "directories of packages, or trees, with commas between them, taken in this order", true}},
    .outputs = {changed_output},
    .edits = {"rootpath="},
};

// What keeps the library from working in the root and nowhere else; empty: nothing.
std::string defect_of(const std::string &root) {
    std::string defect = defect_of_deep_root(root);
    for (const char *below :
         {"/var/sadm/softinfo", "/var/sadm/install_data", "/var/sadm/system/admin", "/usr"})
        if (defect.empty())
            defect = way_out_of_root(root, below);
    return defect;
}

int work(Call &call) {
    const std::string root = real_path_of(call.get("rootpath"));
    const std::vector<std::string> sources = split_paths(call.get("sources"));
    std::string defect = defect_of(root);
    for (const std::string &source : sources)
        if (defect.empty())
            defect = defect_of_source(root, source);
    if (!defect.empty())
        fail(Code::unusable, defect);
    const auto before = base::state_of_tree(base::Beneath(root));
    call.progress(base::tr("filling {1}", root));
    const auto tell_left = [&] {
        call.left_undone(base::tr(
            "{1} may hold part of what was to be in it; run this again when the cause is mended", root));
    };
    const Ending ending = run_apart([&] {
        return guarded(call, [&] {
            const int status = fill_root(call, root, call.get("os_name"), call.get("os_version"), sources);
            if (status == 2)
                tell_left();
            return status;
        });
    });
    if (ending.done) {
        tell_changed(call, base::state_of_tree(base::Beneath(root)) != before);
        return 0;
    }
    if (!ending.reason.empty()) {
        call.fail(ending.reason, static_cast<int>(Code::interrupted));
        tell_left();
    }
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
