// SPDX-License-Identifier: MIT
#include "server/checks/finding.hpp"

#include "base/translation.hpp"

namespace hostadm::server {

const char *name_of(Severity severity) {
    return severity == Severity::error ? base::translatable("error") : base::translatable("warning");
}

const char *name_of(Stage stage) {
    switch (stage) {
    case Stage::address:
        return base::translatable("address");
    case Stage::boot_program:
        return base::translatable("boot program");
    case Stage::name:
        return base::translatable("name");
    case Stage::parameters:
        return base::translatable("parameters");
    case Stage::root:
        return base::translatable("root");
    case Stage::start:
        return base::translatable("start");
    case Stage::swap:
        return base::translatable("swap");
    case Stage::reboot:
        return base::translatable("reboot");
    }
    return "";
}

} // namespace hostadm::server
