// SPDX-License-Identifier: MIT
// What a client needs in its own root to run: lines of its mount table, a table of hosts, its name, its devices. What
// is there already stays. All of it goes through the root's descriptor, since the root belongs to the client.
#pragma once

#include <string>
#include <string_view>
#include <tuple>

#include "server/journal.hpp"
#include "server/new_client.hpp"
#include "server/report.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// A file or device that was made in a client's root.
struct MadeInRoot {
    static constexpr std::string_view kind = "made in the client's root";
    std::string root, file, text; // no text: a device
    static auto fields(auto &self) { return std::tie(self.root, self.file, self.text); }
};
// What the client has changed since stays.
std::string take_back(const MadeInRoot &made, const UndoContext &context);

// Throws Failure.
void prepare_root(const NewClient &client, Journal &journal, Report &report);

} // namespace hostadm::server
