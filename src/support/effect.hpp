// SPDX-License-Identifier: MIT
// When a change takes effect: on the running system, at boot, or both.
#pragma once

#include <optional>

namespace hostadm {

struct Effect {
    bool now;
    bool at_boot;
};

// "nowonly", "bootonly" or "nowandboot" (also when NULL or empty).
// Any other text is recorded as error 10 and has no effect.
std::optional<Effect> read_effect(const char *takeeffect, const char *method);

} // namespace hostadm
