// SPDX-License-Identifier: MIT
// Running a method, here or on another host.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "framework/protocol/answer.hpp"
#include "framework/protocol/channel.hpp"
#include "framework/protocol/description.hpp"

namespace hostadm::framework {

struct Outcome {
    enum class Status { done = 0, failed = 1, invalid = 2 };
    Status status = Status::failed;
    Answer answer;
    // Why the run failed, where the method did not say so itself: it could not be run, it was killed, its
    // answer makes no sense. For an invalid argument: what was wrong and what is accepted.
    std::string reason;
};

// The methods of this installation as CLASS/NAME, sorted.
std::vector<std::string> list_methods();

// Completes the name of a method (NAME or CLASS/NAME, the class given apart or not at all) to CLASS/NAME.
// The second alternative says why that is not possible.
struct Unknown {
    std::string reason;
};
std::variant<std::string, Unknown> find_method(std::string_view method_class, std::string_view name);

// Asks a method for its description.
std::variant<method::Description, std::string> describe(const std::string &name);

// Runs the method that the request names in full on this host.
Outcome perform_here(Request request);
// Runs a method where the host says; the empty host is this one.
// Only here is it known what a name means here.
Outcome perform(std::string_view method_class, std::string_view name, Request request,
                const std::string &host);

} // namespace hostadm::framework
