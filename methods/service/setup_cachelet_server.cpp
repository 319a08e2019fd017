// SPDX-License-Identifier: MIT
#include <map>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/packages.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/setup_cachelet_server",
    .purpose = "install on this server what it needs to serve cache-only clients",
    .outputs = {changed_output},
    .columns = {{"package", "package that is needed"},
                {"result", "installed, or present when it was there before"}},
    .edits = {"the service's tree"},
};

int work(Call &call) {
    const std::string arch = server_architecture(), release = server_release();
    std::map<std::string, bool> present;
    for (const char *package : {"KTVXqsvu", "KTVXqsvr"})
        present[package] = is_package_recorded(arch, release, package);
    call.progress(hostadm::base::tr("installing the cache server packages from {1}",
                                    HOSTADM_DATAADMIN "/Packages/" + arch + "/5.X"));
    const int status = setup_as_cachelet_server(call.method().c_str());
    bool changed = false;
    for (const char *package : {"KTVXqsvu", "KTVXqsvr"}) {
        changed = changed || !present[package];
        if (present[package])
            call.row({{"package", package}, {"result", "present"}});
        else if (status == 0 || is_package_recorded(arch, release, package))
            call.row({{"package", package}, {"result", "installed"}});
    }
    if (status == 0)
        tell_changed(call, changed);
    return status;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
