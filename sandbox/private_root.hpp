// SPDX-License-Identifier: MIT
// Making the private root, in the first process of the new namespaces.
#pragma once

#include <functional>
#include <string>

#include "base/descriptor.hpp"
#include "hostadm/sandbox.hpp"
#include "sandbox/live_network.hpp"

namespace hostadm::sandbox {

using base::Descriptor;

// One file system's layers, for whoever looks at the changes:
// what the command wrote, what it saw, what it found.
struct Layers {
    std::string mount_point;
    Descriptor written, merged, found;
};

struct RootListener {
    std::function<void(Layers)> on_layers;
    std::function<void(const std::string &mount_point)> on_read_only;
};

// Makes the root and enters it. The calling process is alone in new namespaces of its own;
// the network is what it saw before, and so are the processes, where they are shown and closed. Throws Error.
void enter_private_root(const Options &options, const LiveNetwork &network, Descriptor processes,
                        const RootListener &listener);

} // namespace hostadm::sandbox
