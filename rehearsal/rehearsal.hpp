// SPDX-License-Identifier: MIT
// The whole of a rehearsal: this server once more in a throwaway root, a client at a cable to it, and what the
// live daemons do otherwise.
#pragma once

#include <functional>

#include "rehearsal/walk.hpp"

namespace hostadm::rehearsal {

struct Rehearsed {
    BootingClient client;
    std::string interface; // of this server, at which the cable was
    Walked walked;
    double milliseconds = 0; // of all of it

    bool passed() const { return walked.passed() && walked.findings.empty(); }
};

// Throws sandbox::Error where this user or kernel may not make a throwaway root, std::runtime_error for what
// else keeps it from being tried at all. Each stage is told when it has been walked, by another process.
Rehearsed rehearse(const std::string &client, Settings settings,
                   const std::function<void(const StageResult &)> &tell);

// What the live daemons answer otherwise than the rehearsed ones, or do not answer.
server::Findings differences_of_live_daemons(const BootingClient &client, const Network &network,
                                             const Walked &walked);

} // namespace hostadm::rehearsal
