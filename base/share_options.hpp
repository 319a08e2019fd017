// SPDX-License-Identifier: MIT
// The options of a share, as a System V administrator writes them: rw, ro, rw=c1:c2, ro=c1, root=c1, anon=0.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::base {

// What is shared, or how, is not understood or not allowed; the text is for the administrator.
class ShareRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Access { none, read, write };

struct ShareOptions {
    Access everyone = Access::write;
    std::vector<std::string> writers;
    std::vector<std::string> readers;
    std::vector<std::string> roots;
    std::optional<unsigned> anonymous; // the user that an unknown user, and another host's root, becomes
};

// Throws a ShareRefused that names the word it did not understand.
ShareOptions parse_share_options(std::string_view text);

// What one named client may do, where that differs from everyone else.
struct ClientRule {
    std::string client;
    Access access = Access::none;
    bool root = false; // its root is not turned into the anonymous user
    bool operator==(const ClientRule &) const = default;
};
std::vector<ClientRule> client_rules(const ShareOptions &options);

} // namespace hostadm::base
