// SPDX-License-Identifier: MIT
// Basic regular expressions.
#pragma once

#include <optional>
#include <regex.h>
#include <string>

namespace hostadm {

// A compiled expression; one that cannot be compiled matches nothing.
class Expression {
public:
    struct Match {
        std::string group; // what the first parenthesised group matched, or nothing
        std::size_t end;   // where the match ends in the text
    };

    explicit Expression(const std::string &pattern);
    ~Expression();
    Expression(const Expression &) = delete;
    Expression &operator=(const Expression &) = delete;

    // The leftmost longest match anywhere in the text.
    std::optional<Match> search(const std::string &text) const;

private:
    regex_t compiled_;
    bool usable_;
};

} // namespace hostadm
