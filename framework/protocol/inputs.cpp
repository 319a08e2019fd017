// SPDX-License-Identifier: MIT
#include "framework/protocol/inputs.hpp"

#include <optional>

#include "base/immortal.hpp"
#include "framework/protocol/channel.hpp"

namespace hostadm::framework {

namespace {

// A method may clean up in a handler that runs at the process's exit.
std::optional<Fields> &kept() {
    static base::Immortal<std::optional<Fields>> fields;
    return fields.get();
}

} // namespace

adm_arg *Field::view() {
    record_ = {name_.c_str(), ADM_STRING, static_cast<unsigned int>(value_.size()), value_.data()};
    return &record_;
}

Field *find(Fields &fields, std::string_view name) {
    for (Field &field : fields)
        if (field.name() == name)
            return &field;
    return nullptr;
}

Fields &inputs() {
    if (!kept())
        set_inputs(read_request().value_or(Request{}));
    return *kept();
}

void set_inputs(const Request &request) {
    Fields fields;
    for (const auto &[name, value] : request.arguments)
        fields.emplace_back(name, value);
    kept() = std::move(fields);
}

} // namespace hostadm::framework
