// SPDX-License-Identifier: MIT
#include "src/support/expression.hpp"

namespace hostadm {

Expression::Expression(const std::string &pattern) : usable_(regcomp(&compiled_, pattern.c_str(), 0) == 0) {}

Expression::~Expression() {
    if (usable_)
        regfree(&compiled_);
}

std::optional<Expression::Match> Expression::search(const std::string &text) const {
    regmatch_t found[2];
    if (!usable_ || regexec(&compiled_, text.c_str(), 2, found, 0) != 0)
        return std::nullopt;
    Match match;
    match.end = static_cast<std::size_t>(found[0].rm_eo);
    if (found[1].rm_so >= 0)
        match.group = text.substr(static_cast<std::size_t>(found[1].rm_so),
                                  static_cast<std::size_t>(found[1].rm_eo - found[1].rm_so));
    return match;
}

} // namespace hostadm
