// SPDX-License-Identifier: MIT
#include <string>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "host/check_daemon",
    .purpose = "tell whether a daemon runs",
    .arguments = {{.name = "name",
                   .kind = Kind::word,
                   .purpose =
                       "the daemon's program without its directory, such as nfsd; it counts when it was "
                       "started by a path"},
                  {.name = "interface",
                   .kind = Kind::word,
                   .purpose =
                       "instead of a name: ask whether the reverse-address daemon in.rarpd serves this "
                       "network interface"}},
    .outputs = {{"state", "running, not running, or defunct (ended, but its parent has not noticed)"},
                {"pid", "its process id, when asked by name and found"}},
};

int work(Call &call) {
    const bool by_name = call.given("name");
    if (by_name == call.given("interface"))
        return call.refuse(
            by_name ? hostadm::base::tr("give either name or interface, not both")
                    : hostadm::base::tr("name a daemon with name=, or a network interface with interface="));
    int pid = 0;
    switch (by_name ? check_daemon(call.get("name").c_str(), &pid)
                    : check_rarpd(call.get("interface").c_str())) {
    case HOSTADM_DAEMON_RUNNING:
        call.set("state", "running");
        break;
    case HOSTADM_DAEMON_NOT_RUNNING:
        call.set("state", "not running");
        break;
    case HOSTADM_DAEMON_DEFUNCT:
        call.set("state", "defunct");
        break;
    default:
        fail(Code::system, hostadm::base::tr("cannot look at the processes in /proc; is it mounted?"));
    }
    if (pid != 0)
        call.set("pid", std::to_string(pid));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
