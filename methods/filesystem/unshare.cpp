// SPDX-License-Identifier: MIT
#include "hostadm.h"
#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "filesystem/unshare",
    .purpose = "withdraw a share now, at boot, or both",
    .arguments =
        {{.name = "pathname", .kind = Kind::path, .purpose = "directory that is shared", .required = true},
         {.name = "client",
          .kind = Kind::host,
          .purpose = "withdraw it only if it is shared with this host alone"},
         {.name = "fstype",
          .kind = Kind::choice,
          .purpose = "type of the share",
          .default_value = "nfs",
          .choices = {"nfs"}},
         {.name = "takeeffect",
          .kind = Kind::choice,
          .purpose = "nowonly withdraws it, bootonly removes its line from /etc/dfs/dfstab, nowandboot "
                     "does both",
          .default_value = "nowandboot",
          .choices = {"nowonly", "bootonly", "nowandboot"}}},
    .outputs = {{"pathname", "the directory, without links and dots: what was withdrawn"}},
};

int work(Call &call) {
    return unsharefs(call.get("fstype").c_str(), call.get("pathname").c_str(), call.get("client").c_str(),
                     call.get("takeeffect").c_str(), call.method().c_str());
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
