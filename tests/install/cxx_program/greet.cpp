// SPDX-License-Identifier: MIT
// A method of somebody else.
#include <hostadm/method.hpp>

using namespace hostadm::method;

int main(int argc, char **argv) {
    const Description description{
        .name = "other/greet",
        .purpose = "greets",
        .arguments = {{.name = "who", .purpose = "whom to greet", .required = true}},
        .outputs = {{"greeting", "the greeting"}}};
    return run(argc, argv, description, [](Call &call) {
        call.set("greeting", "hello " + call.get("who"));
        return 0;
    });
}
