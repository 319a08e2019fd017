// SPDX-License-Identifier: MIT
// The input arguments of the method that this process is, as C and C++ see them.
#pragma once

#include <list>
#include <string>
#include <string_view>

#include "hostadm/framework.h"
#include "hostadm/runner.hpp"

namespace hostadm::framework {

// A named value and the record by which C sees it.
class Field {
public:
    Field(std::string name, std::string value) : name_(std::move(name)), value_(std::move(value)) {}
    const std::string &name() const { return name_; }
    std::string_view value() const { return value_; }
    void assign(std::string value) { value_ = std::move(value); }
    adm_arg *view();

private:
    std::string name_;
    std::string value_;
    adm_arg record_{};
};

// A list, since records handed out must keep their place.
using Fields = std::list<Field>;
Field *find(Fields &fields, std::string_view name);

// The arguments of the method that this process is. They are read once and stay, for a handler that runs at
// the process's exit too: callers may keep what they found, and write to its value.
Fields &inputs();
// Gives them the values that they have after the check.
void set_inputs(const Request &request);

} // namespace hostadm::framework
