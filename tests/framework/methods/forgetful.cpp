// SPDX-License-Identifier: MIT
// Promises an output and does not return it.
#include "hostadm/method.hpp"

int main(int argc, char **argv) {
    const hostadm::method::Description description{.name = "test/forgetful",
                                                   .purpose = "forget an output",
                                                   .outputs = {{.name = "promised", .required = true}}};
    return run(argc, argv, description, [](hostadm::method::Call &) { return 0; });
}
