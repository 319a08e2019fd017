// SPDX-License-Identifier: MIT
// What a method of several steps tells of each of them, once all are done: of a run that failed nothing stays that
// could be told.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "hostadm/method.hpp"

namespace hostadm::server {

class Report {
public:
    void step(const std::string &name, bool changed, const std::string &detail);
    void kept(const std::string &name, const std::string &why) { add(name, "kept", why); }
    void warn(const std::string &name, const std::string &what) { add(name, "warning", what); }
    bool changed() const { return changed_; }

    // As rows with the columns step, result and detail, and the output "changed".
    void tell(method::Call &call) const;

private:
    void add(const std::string &name, const char *result, const std::string &detail);

    bool changed_ = false;
    std::vector<std::vector<std::pair<std::string, std::string>>> rows_;
};

} // namespace hostadm::server
