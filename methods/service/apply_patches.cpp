// SPDX-License-Identifier: MIT
#include <filesystem>

#include "hostadm.h"
#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;
namespace fs = std::filesystem;

constexpr const char *patch_tool = HOSTADM_OPTADMIN "/bin/drelpatch";

const Description description{
    .name = "service/apply_patches",
    .purpose = "apply the stored patches to a client's root",
    .arguments = {{.name = "root",
                   .kind = Kind::path,
                   .purpose = "the client's root directory on this server",
                   .required = true}},
    .outputs = {{"result", "applied, or no_patch_tool when there is none here"}},
};

int work(Call &call) {
    const std::string root = call.get("root");
    std::error_code error;
    if (!fs::is_directory(root, error))
        return call.fail(root + " is no directory; give the client's root directory on this server");
    if (!fs::exists(patch_tool, error)) {
        call.set("result", "no_patch_tool");
        return 0;
    }
    call.progress("applying patches to " + root);
    const int status = apply_patches(root.c_str());
    if (status == 0)
        call.set("result", "applied");
    else
        call.left_undone(root + " may have some of the patches; run this again when the cause is mended");
    return status;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
