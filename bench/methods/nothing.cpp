// SPDX-License-Identifier: MIT
// The method that does nothing.
#include "hostadm/method.hpp"

int main(int argc, char **argv) {
    return hostadm::method::run(argc, argv, {.name = "bench/nothing", .purpose = "do nothing"},
                                [](hostadm::method::Call &) { return 0; });
}
