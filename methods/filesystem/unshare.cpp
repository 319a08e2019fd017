// SPDX-License-Identifier: MIT
#include <string>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"

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
    .edits = {"/etc/dfs/dfstab"},
    .shares = {"pathname="},
};

// Empty when all is there. The share list is needed to tell whether a client is the only one.
std::string missing_commands(const Call &call) {
    using hostadm::server::missing_command;
    std::string missing = missing_command("/usr/sbin/unshare", "withdraws shares");
    if (missing.empty() && call.given("client"))
        missing = missing_command("/usr/sbin/share", "knows the shares");
    return missing;
}

int work(Call &call) {
    if (call.get("takeeffect") != "bootonly")
        if (const std::string missing = missing_commands(call); !missing.empty())
            return call.fail(missing);
    return unsharefs(call.get("fstype").c_str(), call.get("pathname").c_str(), call.get("client").c_str(),
                     call.get("takeeffect").c_str(), call.method().c_str());
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
