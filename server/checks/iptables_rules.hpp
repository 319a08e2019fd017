// SPDX-License-Identifier: MIT
// The rules of iptables, which keeps them apart from nftables' own, or in words that nftables does not know.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace hostadm::server {

// What iptables-save prints, in the form in which nftables prints its rules for programs. Each rule bears its own
// words besides, and each chain the command (iptables, iptables-legacy) that changes it.
nlohmann::json chains_of_iptables(const std::string &saved, const std::string &command);

} // namespace hostadm::server
