// SPDX-License-Identifier: MIT
// A client that is kept from booting, and of which nothing is lost: its line in /etc/ethers and those of its shares in
// the table of shares stay where they are, behind a mark, and it is told no address and may mount nothing until they
// count again.
#pragma once

#include <string>
#include <unordered_map>

#include "server/clients.hpp"
#include "server/journal.hpp"
#include "server/report.hpp"

namespace hostadm::server {

// The Ethernet address behind the mark under which a client stands; empty: it is not disabled.
std::string disabled_ethernet_of(const std::string &name);
// The client in whose marked line of a table this key stands, such as an Ethernet address; empty: none.
std::string disabled_name_of(const std::string &table, const std::string &key);
// All of them by name, in lower case.
std::unordered_map<std::string, std::string> disabled_ethernets();

// A share of a client that was withdrawn now, while its line in the table is no business of this step.
struct WithdrawnShare {
    static constexpr std::string_view kind = "withdrawn share";
    std::string path, options;
    static auto fields(auto &self) { return std::tie(self.path, self.options); }
};
std::string take_back(const WithdrawnShare &withdrawn, const UndoContext &context);
// A share of a client that was made now.
struct ResumedShare {
    static constexpr std::string_view kind = "resumed share";
    std::string path;
    static auto fields(auto &self) { return std::tie(self.path); }
};
std::string take_back(const ResumedShare &resumed, const UndoContext &context);

// Each looks whether it is so afterwards, and throws Failure when it is not. What is so already stays.
void disable_client(const std::string &method, const Client &client, Journal &journal, Report &report);
void enable_client(const std::string &method, const Client &client, Journal &journal, Report &report);

// Removes what disable_client keeps of a client. True when there was anything.
bool forget_disabled(const std::string &name);

} // namespace hostadm::server
