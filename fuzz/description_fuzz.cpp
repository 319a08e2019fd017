// SPDX-License-Identifier: MIT
// Any bytes as what a method prints when it is asked to describe itself; then the same bytes as an
// argument's value.
//
// What must hold: a description that is accepted is written and read back the same; a request that passes the
// check has only declared arguments, none that is missing, each value as its kind wants it, and passes again
// unchanged.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <variant>

#include "framework/protocol/description.hpp"
#include "framework/protocol/kinds.hpp"

namespace {

using namespace hostadm::framework;
using hostadm::method::Argument;
using hostadm::method::Description;

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

void check_request(const Description &description, std::string_view value) {
    Request request{description.name, {}};
    for (const Argument &argument : description.arguments)
        if (argument.default_value.empty())
            request.arguments.emplace_back(argument.name, std::string(value));
    if (check(description, request))
        return;
    for (const Argument &argument : description.arguments) {
        const std::string *given = request.find(argument.name);
        const bool absent = given == nullptr || given->empty();
        require(!absent || !argument.required, "no required argument is missing");
        require(absent || is_accepted(argument, *given), "an accepted value stays one in its one spelling");
    }
    const auto before = request.arguments;
    require(!check(description, request) && request.arguments == before, "what passed passes again");
    request.arguments.emplace_back("not_declared", "x");
    const bool declared =
        std::any_of(description.arguments.begin(), description.arguments.end(),
                    [](const Argument &argument) { return argument.name == "not_declared"; });
    require(declared || check(description, request).has_value(),
            "an argument that is not declared is refused");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const auto parsed = parse_description(bytes);
    if (const auto *description = std::get_if<Description>(&parsed)) {
        const std::string text = to_json(*description).dump(-1, ' ', false, Json::error_handler_t::replace);
        const auto again = parse_description(text);
        const auto *same = std::get_if<Description>(&again);
        require(same != nullptr, "a description that was written is accepted");
        require(to_json(*same).dump(-1, ' ', false, Json::error_handler_t::replace) == text,
                "and is read back the same");
        require(!help_text(*description).empty(), "there is help for it");
        check_request(*description, bytes.substr(0, 40));
    } else {
        require(!std::get<std::string>(parsed).empty(), "a refusal says why");
    }

    // One argument of each kind.
    for (int kind = 0; kind <= static_cast<int>(hostadm::method::Kind::text); ++kind)
        check_request({.name = "class/name",
                       .arguments = {{.name = "argument",
                                      .kind = static_cast<hostadm::method::Kind>(kind),
                                      .choices = {"one", "two"}}}},
                      bytes);
    return 0;
}
