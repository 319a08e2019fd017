// SPDX-License-Identifier: MIT
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "netboot/cleanup_rplboot",
    .purpose = "remove a client's links from /rplboot; the shared files stay",
    .arguments = {{"client_key", Kind::word, "the name under which the client asks, whole", true}},
    .outputs = {{"removed", "how many links were removed"}, changed_output},
    .edits = {"/rplboot"},
};

std::vector<std::string> names_that_begin_with(const std::string &key) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/rplboot", error))
        if (std::string name = entry.path().filename(); name.starts_with(key))
            names.push_back(std::move(name));
    return names;
}

int work(Call &call) {
    const std::string key = call.get("client_key");
    if (key.front() == '.') // for the shell, "..*" is more than a client's files
        return call.refuse(hostadm::base::tr("client_key: \"{1}\" is no client's key", key));
    const Claims claims(call.method(), key, {{Claim::Kind::path, "/rplboot/" + key}});
    const std::vector<std::string> names = names_that_begin_with(key);
    tell_changed(call, false);
    call.set("removed", "0");
    // The library takes all of them, whosever they are: shared files and those of a longer key, too.
    for (const std::string &name : names)
        if (name != key + ".hw.com" && name != key + ".glue.com" && name != key + ".inetboot")
            return call.refuse(
                hostadm::base::tr("client_key: \"{1}\" would also remove /rplboot/{2}, which is not "
                                  "this client's; give its whole key",
                                  key, name));
    if (names.empty()) // rm would complain of it
        return 0;
    if (cleanup_rplboot_dir(call.method().c_str(), key.c_str()) != 0)
        fail(Code::system, hostadm::base::tr("cannot remove the files of {1} from /rplboot", key));
    if (!names_that_begin_with(key).empty())
        fail(Code::no_effect,
             hostadm::base::tr("the files of {1} are still in /rplboot, although they were removed", key));
    call.set("removed", std::to_string(names.size()));
    tell_changed(call, true);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
