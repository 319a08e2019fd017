// SPDX-License-Identifier: MIT
#include "server/report.hpp"

#include "server/page.hpp"

namespace hostadm::server {

void Report::step(const std::string &name, bool changed, const std::string &detail) {
    changed_ = changed_ || changed;
    add(name, changed ? "done" : "unchanged", detail);
}

void Report::add(const std::string &name, const char *result, const std::string &detail) {
    rows_.push_back({{"step", name}, {"result", result}, {"detail", detail}});
}

void Report::tell(method::Call &call) const {
    for (const auto &row : rows_)
        call.row(row);
    tell_changed(call, changed_);
}

} // namespace hostadm::server
