// SPDX-License-Identifier: MIT
#include "base/nearest.hpp"

#include <algorithm>

namespace hostadm::base {

namespace {

constexpr std::size_t longest_compared = 64; // no word that is looked for is longer

// The fewest letters to change, add, leave out or swap with their neighbours to make one word of the other.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> before, last, row(other.size() + 1);
    for (std::size_t at = 0; at <= other.size(); ++at)
        row[at] = at;
    for (std::size_t line = 1; line <= one.size(); ++line) {
        before = std::move(last);
        last = row;
        row[0] = line;
        for (std::size_t at = 1; at <= other.size(); ++at) {
            const std::size_t changed = last[at - 1] + (one[line - 1] == other[at - 1] ? 0 : 1);
            row[at] = std::min({changed, last[at] + 1, row[at - 1] + 1});
            if (line > 1 && at > 1 && one[line - 1] == other[at - 2] && one[line - 2] == other[at - 1])
                row[at] = std::min(row[at], before[at - 2] + 1);
        }
    }
    return row.back();
}

} // namespace

std::string nearest(const std::vector<std::string> &words, std::string_view wanted) {
    if (wanted.empty() || wanted.size() > longest_compared)
        return "";
    std::string found;
    // More than a third of it wrong, and another word was meant.
    std::size_t best = std::max<std::size_t>(wanted.size() < 4 ? 1 : 2, wanted.size() / 3) + 1;
    for (const std::string &word : words) {
        if (word.size() > longest_compared)
            continue;
        if (const std::size_t far = distance(wanted, word); far < best) {
            best = far;
            found = word;
        }
    }
    // Who leaves the end of a word out means that word, if it is only one.
    if (found.empty() && wanted.size() >= 3)
        for (const std::string &word : words)
            if (word.starts_with(wanted)) {
                if (!found.empty())
                    return "";
                found = word;
            }
    return found;
}

} // namespace hostadm::base
