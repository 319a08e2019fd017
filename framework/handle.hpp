// SPDX-License-Identifier: MIT
// What stands behind an argument handle.
#pragma once

#include <deque>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "hostadm/framework.h"

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

} // namespace hostadm::framework

struct adm_args {
    std::vector<hostadm::framework::Fields> rows;
    hostadm::framework::Fields outputs; // seen from every row
    std::size_t current = 0;
    unsigned int flags = 0;
    std::deque<std::string> fallbacks;

    hostadm::framework::Field *field(std::string_view name);
};
