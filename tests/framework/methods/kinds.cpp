// SPDX-License-Identifier: MIT
// Takes an argument of each kind and returns what reaches a method of it.
#include "hostadm/framework.h"
#include "hostadm/method.hpp"

using namespace hostadm::method;

namespace {

const Description description{
    .name = "test/kinds",
    .purpose = "take an argument of each kind",
    .arguments = {{.name = "host", .kind = Kind::host},
                  {.name = "hosts", .kind = Kind::hosts},
                  {.name = "address", .kind = Kind::address},
                  {.name = "ethernet", .kind = Kind::ethernet},
                  {.name = "path", .kind = Kind::path},
                  {.name = "device", .kind = Kind::device},
                  {.name = "options", .kind = Kind::options},
                  {.name = "release", .kind = Kind::release},
                  {.name = "word", .kind = Kind::word, .default_value = "standard"},
                  {.name = "number", .kind = Kind::number},
                  {.name = "size", .kind = Kind::size},
                  {.name = "choice", .kind = Kind::choice, .choices = {"red", "green", "blue"}},
                  {.name = "yes_no", .kind = Kind::yes_no},
                  {.name = "text", .kind = Kind::text}},
    .columns = {{.name = "name"}, {.name = "value"}, {.name = "given"}},
};

int work(Call &call) {
    for (const Argument &argument : description.arguments) {
        adm_arg *record = nullptr;
        if (adm_args_geti(argument.name.c_str(), ADM_STRING, &record) == 0)
            call.row({{"name", argument.name},
                      {"value", record->value},
                      {"given", call.given(argument.name) ? "yes" : "no"}});
    }
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
