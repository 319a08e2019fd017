// SPDX-License-Identifier: MIT
#include <cstring>

#include "hostadm.h"
#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "database/set_host",
    .purpose = "give an address a name in the hosts table; the line of that address is replaced",
    .arguments = {{"address", Kind::address, "IPv4 address", true},
                  {"hostname", Kind::host, "its name", true},
                  {"table", Kind::path, "the table to edit", false, "/etc/hosts"}},
};

int work(Call &call) {
    constexpr int locked = -26;
    const std::string table = call.get("table");
    const int status = set_hosts(table.c_str(), call.get("address").c_str(), call.get("hostname").c_str());
    if (status == 0)
        return 0;
    return call.fail(status == locked
                         ? table + " is being edited by somebody else and did not become free; try again"
                         : table + ": " + std::strerror(status < 0 ? -status : status));
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
