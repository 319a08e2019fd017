// SPDX-License-Identifier: MIT
// Making the private root, in the first process of the new namespaces.
#pragma once

#include <functional>
#include <string>

#include "hostadm/sandbox.hpp"
#include "sandbox/descriptor.hpp"

namespace hostadm::sandbox {

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

// Makes the root and enters it. The calling process is alone in new namespaces of its own. Throws Error.
void enter_private_root(const Options &options, const RootListener &listener);

} // namespace hostadm::sandbox
