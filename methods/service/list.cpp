// SPDX-License-Identifier: MIT
#include "base/text.hpp"
#include "hostadm/method.hpp"
#include "server/page.hpp"
#include "server/services.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/list",
    .purpose = "list the operating systems that this server keeps for clients",
    .columns = {{"os_name", "name of the operating system"},
                {"os_version", "version of it"},
                {"instruction_set", "the instruction set that it is for"},
                {"architectures", "implementation architectures of which it has boot programs"},
                {"made_of", "the tree, packages or install hierarchy that it was made of"},
                {"clients", "the clients that use it"}},
};

int work(Call &) {
    ManyRows rows;
    for (const Service &service : all_services())
        rows.add({{"os_name", service.os_name},
                  {"os_version", service.os_version},
                  {"instruction_set", service.instruction_set},
                  {"architectures", base::joined(service.architectures)},
                  {"made_of", service.source},
                  {"clients", base::joined(clients_of(service))}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
