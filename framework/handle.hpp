// SPDX-License-Identifier: MIT
// What stands behind an argument handle.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <string_view>

#include "framework/protocol/inputs.hpp"
#include "hostadm/framework.h"
#include "hostadm/runner.hpp"

struct adm_args {
    // A value that the current row, or else every row, shows under a name; NULL: there is none.
    char *value(std::string_view name);
    // The same as a record.
    adm_arg *record(std::string_view name);
    std::size_t rows() const { return returned.empty() && !put.empty() ? 1 : returned.size(); }

    hostadm::framework::Fields put;     // by the caller; they belong to the first row
    hostadm::framework::Rows returned;  // by a method
    hostadm::framework::Fields outputs; // by a method; seen from every row
    std::size_t current = 0;
    unsigned int flags = 0;
    std::deque<std::string> fallbacks;

private:
    hostadm::framework::Field *find_put(std::string_view name);
    std::size_t find_returned(std::string_view name) const;

    std::map<std::size_t, adm_arg> records_; // of returned fields, by their numbers
};
