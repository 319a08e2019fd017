// SPDX-License-Identifier: MIT
#include "methods/client/switching.hpp"

int main(int argc, char **argv) {
    return hostadm::run_switching(
        argc, argv, {"enable", "let a client boot again that was disabled", hostadm::server::enable_client});
}
