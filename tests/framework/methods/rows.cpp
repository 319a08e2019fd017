// SPDX-License-Identifier: MIT
// Returns as many rows, and a value as long, as wanted.
#include <string>

#include "hostadm/method.hpp"

using namespace hostadm::method;

namespace {

const Description description{
    .name = "test/rows",
    .purpose = "return many rows or a long value",
    .arguments = {{.name = "rows", .kind = Kind::number, .default_value = "0"},
                  {.name = "length", .kind = Kind::number, .default_value = "0"}},
    .outputs = {{.name = "long"}},
    .columns = {{.name = "hostname"}, {.name = "filesystems"}},
};

int work(Call &call) {
    for (int row = 0; row < std::stoi(call.get("rows")); ++row)
        call.row({{"hostname", "client" + std::to_string(row)},
                  {"filesystems", "root=server:/export/root/client swap=server:/export/swap/client"}});
    if (call.get("length") != "0")
        call.set("long", std::string(std::stoul(call.get("length")), 'x'));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
