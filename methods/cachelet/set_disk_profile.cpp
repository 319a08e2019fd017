// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/cached_mounts.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "cachelet/set_disk_profile",
    .purpose = "give a client the profile by which its automatic installation lays out its disk",
    .arguments =
        {{.name = "root",
          .kind = Kind::path,
          .purpose = "the client's root directory on this server",
          .required = true},
         {.name = "profile_set",
          .kind = Kind::word,
          .purpose = "directory in " HOSTADM_DATAADMIN "/etc/autoinstall",
          .required = true},
         {.name = "profile", .kind = Kind::word, .purpose = "file in that directory", .required = true}},
    .outputs = {{"result", "done, or unchanged when it was so already"},
                {"pathname", "the client's copy"},
                changed_output},
    .edits = {"root="},
};

int work(Call &call) {
    const std::string root = call.get("root");
    check_client_root(root);
    const bool changed =
        set_install_profile(call.method(), root, call.get("profile_set"), call.get("profile"));
    call.set("result", changed ? "done" : "unchanged");
    tell_changed(call, changed);
    call.set("pathname", root + "/.autoinstall/" + call.get("profile"));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
