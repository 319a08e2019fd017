// SPDX-License-Identifier: MIT
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "support/edit_failure.hpp"

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
    const std::string table = call.get("table");
    const int status = set_hosts(table.c_str(), call.get("address").c_str(), call.get("hostname").c_str());
    return status == 0 ? 0 : call.fail(hostadm::methods::edit_failure(table, status));
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
