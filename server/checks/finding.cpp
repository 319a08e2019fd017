// SPDX-License-Identifier: MIT
#include "server/checks/finding.hpp"

namespace hostadm::server {

const char *name_of(Severity severity) {
    return severity == Severity::error ? "error" : "warning";
}

const char *name_of(Stage stage) {
    switch (stage) {
    case Stage::address:
        return "address";
    case Stage::boot_program:
        return "boot program";
    case Stage::name:
        return "name";
    case Stage::parameters:
        return "parameters";
    case Stage::root:
        return "root";
    case Stage::start:
        return "start";
    case Stage::swap:
        return "swap";
    case Stage::reboot:
        return "reboot";
    }
    return "";
}

} // namespace hostadm::server
