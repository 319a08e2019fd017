// SPDX-License-Identifier: MIT
// Device nodes for a confined command: it may not make any, so its first process makes them in its name. They
// lie on mounts where no device can be opened.
#pragma once

#include <sys/types.h>

#include "base/descriptor.hpp"

namespace hostadm::sandbox {

using base::Descriptor;

class DeviceNodes {
public:
    DeviceNodes() = default;
    // Where the system calls of the command that make device nodes are heard of.
    explicit DeviceNodes(Descriptor requests) : requests_(std::move(requests)) {}

    int descriptor() const { return requests_.get(); } // to be polled; -1: nobody asks
    // Does what is asked for, as the process that asks would with the right to do it.
    void answer() const;

private:
    Descriptor requests_;
};

// The processes of this process name space as below /proc, whatever is mounted there. Throws Error.
Descriptor own_processes();

} // namespace hostadm::sandbox
