// SPDX-License-Identifier: MIT
// What the values of each kind of argument look like.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hostadm/method.hpp"

namespace hostadm::framework {

std::string_view kind_name(method::Kind kind);
std::optional<method::Kind> kind_called(std::string_view name);

// What a value of the argument must be, to be said after "must be".
std::string accepted(const method::Argument &argument);
bool is_accepted(const method::Argument &argument, std::string_view value);

// The one spelling in which values are handed on:
// Ethernet addresses as 08:00:20:0a:0b:0c, others as they are.
std::string one_spelling(method::Kind kind, std::string_view value);

} // namespace hostadm::framework
