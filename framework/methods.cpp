// SPDX-License-Identifier: MIT
// Running another method.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/boundary.hpp"
#include "base/translation.hpp"
#include "framework/handle.hpp"
#include "framework/runner/perform.hpp"
#include "hostadm/framework.h"

namespace {

namespace base = hostadm::base;
using namespace hostadm::framework;

struct Options {
    std::string method_class;
    std::string host;
    bool known = true;
};

Options read_options(va_list list) {
    Options options;
    for (int option = va_arg(list, int); option != 0; option = va_arg(list, int)) {
        const char *value = va_arg(list, char *);
        if (option == ADM_CLASS)
            options.method_class = value == nullptr ? "" : value;
        else if (option == ADM_HOST)
            options.host = value == nullptr ? "" : value;
        else
            options.known = false;
    }
    return options;
}

Request request_for(const std::string &method, adm_args *input) {
    Request request{method, {}};
    if (input == nullptr)
        return request;
    for (const Field &field : input->put)
        request.arguments.emplace_back(field.name(), field.value());
    if (!input->returned.empty())
        for (const auto &[name, value] : input->returned[0])
            if (find(input->put, name) == nullptr)
                request.arguments.emplace_back(name, value);
    return request;
}

std::unique_ptr<adm_args> returned(Answer &answer) {
    auto handle = std::make_unique<adm_args>();
    for (auto &[name, value] : answer.outputs)
        handle->outputs.emplace_back(std::move(name), std::move(value));
    handle->returned = std::move(answer.rows);
    if (!handle->outputs.empty() || !handle->returned.empty())
        handle->flags = ADM_HANDLE_ROWS;
    return handle;
}

// The last record stands for the failure; what the framework saw itself comes before it.
ErrorRecord failure_of(const Outcome &outcome) {
    if (outcome.status == Outcome::Status::done)
        return {};
    if (outcome.status == Outcome::Status::invalid)
        return {invalid_argument, outcome.reason};
    if (outcome.answer.errors.empty())
        return {cannot_run,
                outcome.reason.empty() ? base::tr("it failed without saying why") : outcome.reason};
    const ErrorRecord &last = outcome.answer.errors.back();
    return {last.code, outcome.reason.empty() ? last.text : outcome.reason + "; " + last.text};
}

void give(adm_error **error, const ErrorRecord &record) {
    if (error == nullptr)
        return;
    auto *copy = static_cast<adm_error *>(std::calloc(1, sizeof(adm_error)));
    *error = copy;
    if (copy == nullptr)
        return;
    copy->code = record.code;
    copy->text = strdup(record.text.c_str());
}

} // namespace

extern "C" int adm_perf_method(const char *method, adm_args *input, adm_args **output, adm_error **error,
                               ...) {
    if (output != nullptr)
        *output = nullptr;
    if (error != nullptr)
        *error = nullptr;
    va_list list;
    va_start(list, error);
    const int status = base::at_boundary([&] {
        const Options options = read_options(list);
        Outcome outcome;
        if (method == nullptr || !options.known)
            outcome.reason =
                method == nullptr ? base::tr("no method was named") : base::tr("an option is not known");
        else
            outcome = perform(options.method_class, method, request_for("", input), options.host);
        if (output != nullptr)
            *output = returned(outcome.answer).release();
        const ErrorRecord failure = failure_of(outcome);
        give(error, failure);
        return outcome.status == Outcome::Status::done ? 0 : failure.code == 0 ? cannot_run : failure.code;
    });
    va_end(list);
    return status;
}
