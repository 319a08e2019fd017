// SPDX-License-Identifier: MIT
#include "src/support/effect.hpp"

#include <string_view>

#include "hostadm.h"
#include "src/support/error.hpp"
#include "src/support/text.hpp"

namespace hostadm {

std::optional<Effect> read_effect(const char *takeeffect, const char *method) {
    const std::string_view mode = text_or(takeeffect, "nowandboot");
    int bits = 0;
    if (mode == "nowonly")
        bits = HOSTADM_NOWONLY;
    else if (mode == "bootonly")
        bits = HOSTADM_BOOTONLY;
    else if (mode == "nowandboot")
        bits = HOSTADM_NOWANDBOOT;
    if (bits == 0) {
        record<bad_argument>(method, takeeffect, "takeeffect");
        return std::nullopt;
    }
    return Effect{(bits & HOSTADM_NOWONLY) != 0, (bits & HOSTADM_BOOTONLY) != 0};
}

} // namespace hostadm
