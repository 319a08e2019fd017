// SPDX-License-Identifier: MIT
// What a rehearsal found, as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "rehearsal/rehearsal.hpp"

namespace hostadm::rehearsal {

nlohmann::ordered_json json_of(const Walked &walked);
Walked walked_of(const nlohmann::ordered_json &json);
nlohmann::ordered_json json_of(const Rehearsed &rehearsed);

} // namespace hostadm::rehearsal
