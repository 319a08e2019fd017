// SPDX-License-Identifier: MIT
// The method's side of include/hostadm/method.hpp.
#include "hostadm/method.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <unistd.h>

#include "base/translation.hpp"
#include "framework/protocol/answer.hpp"
#include "framework/protocol/channel.hpp"
#include "framework/protocol/description.hpp"
#include "framework/protocol/inputs.hpp"
#include "hostadm/framework.h"

namespace hostadm::method {

namespace {

using framework::append_answer;

const Argument *find(const Description &description, std::string_view name) {
    for (const Argument &argument : description.arguments)
        if (argument.name == name)
            return &argument;
    return nullptr;
}

// Runs the work; an exception that it lets out is recorded like any other failure.
int finish(Call &call, const std::function<int(Call &)> &work) {
    try {
        return work(call);
    } catch (const std::exception &failure) {
        return call.fail(failure.what());
    }
}

// An output that the description promises must have come, whoever was to return it.
bool promises_kept(const Description &description) {
    if (std::none_of(description.outputs.begin(), description.outputs.end(),
                     [](const Field &field) { return field.required; }))
        return true;
    const auto answer = framework::read_answer();
    const auto missing = framework::missing_output(description, framework::parse_answer(answer.value_or("")));
    if (missing)
        Call(description).fail(base::tr("it did not return the output {1}", *missing), framework::cannot_run);
    return !missing;
}

constexpr int done = 0;
constexpr int failed = 1;
constexpr int invalid = 2;

} // namespace

std::string Call::method() const {
    return description_.name.substr(description_.name.rfind('/') + 1);
}

std::string Call::get(std::string_view name) const {
    if (framework::Field *given = framework::find(framework::inputs(), name))
        return given->view()->value;
    const Argument *argument = find(description_, name);
    return argument == nullptr ? "" : argument->default_value;
}

bool Call::given(std::string_view name) const {
    const framework::Field *given = framework::find(framework::inputs(), name);
    return given != nullptr && !given->value().empty();
}

void Call::set(std::string_view name, std::string_view value) {
    if (!framework::is_name(name) || !append_answer(framework::output_line(name, value)))
        throw std::runtime_error(base::tr("it could not return the output \"{1}\"; is that a name?", name));
}

void Call::row(std::initializer_list<std::pair<std::string_view, std::string_view>> fields) {
    append_answer(framework::row_line(fields));
}

void Call::row(const std::vector<std::pair<std::string, std::string>> &fields) {
    append_answer(framework::row_line(std::vector<framework::Rows::Field>(fields.begin(), fields.end())));
}

int Call::fail(std::string_view text, int code) const {
    append_answer(framework::error_line(code, method() + ": " + std::string(text)));
    return failed;
}

int Call::refuse(std::string_view text) const {
    append_answer(framework::invalid_line(text));
    return failed;
}

void Call::progress(std::string_view text) const {
    if (isatty(STDERR_FILENO) == 1)
        std::fprintf(stderr, "%s: %s\n", method().c_str(), std::string(text).c_str());
}

void Call::left_undone(std::string_view text) const {
    append_answer(framework::mark_line(ADM_DIRTY, text));
}

ManyRows::~ManyRows() {
    append_answer(lines_);
}

void ManyRows::add(std::initializer_list<std::pair<std::string_view, std::string_view>> fields) {
    constexpr std::size_t enough = 65536;
    framework::append_row_line(lines_, fields);
    if (lines_.size() < enough)
        return;
    append_answer(lines_);
    lines_.clear();
}

int run(int argc, char **argv, const Description &description, const std::function<int(Call &)> &work) {
    base::speak_the_users_language();
    const std::string_view option = argc > 1 ? argv[1] : "";
    if (option == "--describe") {
        std::puts(framework::to_text(description).c_str());
        return done;
    }
    if (option == "--help") {
        std::fputs(framework::help_text(description).c_str(), stdout);
        return done;
    }
    auto request = framework::read_request();
    if (!request) {
        std::fprintf(stderr, "%s: %s\n", argv[0],
                     base::tr("run it with: hostadm run {1}", description.name).c_str());
        return invalid;
    }
    if (const auto wrong = framework::check(description, *request)) {
        append_answer(framework::invalid_line(*wrong));
        return invalid;
    }
    append_answer(framework::begin_line(description.name));
    framework::set_inputs(*request); // as they were checked, in their one spelling
    Call call(description);
    const int status = finish(call, work) == 0 && promises_kept(description) ? done : failed;
    append_answer(framework::end_line(status));
    return status;
}

} // namespace hostadm::method
