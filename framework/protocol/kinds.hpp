// SPDX-License-Identifier: MIT
// What the values of each kind of argument look like.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hostadm/method.hpp"
#include "hostadm/runner.hpp"

namespace hostadm::framework {

std::optional<method::Kind> kind_called(std::string_view name);

// The one spelling in which values are handed on:
// Ethernet addresses as 08:00:20:0a:0b:0c, others as they are.
std::string one_spelling(method::Kind kind, std::string_view value);

} // namespace hostadm::framework
