// SPDX-License-Identifier: MIT
#include "methods/client/switching.hpp"

int main(int argc, char **argv) {
    return hostadm::run_switching(
        argc, argv,
        {"disable", "keep a client from booting; nothing of it is deleted", hostadm::server::disable_client});
}
