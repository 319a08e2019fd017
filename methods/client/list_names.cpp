// SPDX-License-Identifier: MIT
#include "hostadm/method.hpp"
#include "server/clients.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/list_names",
    .purpose =
        "the names alone of the clients that client/list lists, for programs and shells that cannot wait",
    .columns = {{"name", "host name"}},
};

int work(Call &) {
    ManyRows rows;
    for (const std::string &name : all_client_names())
        rows.add({{"name", name}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
