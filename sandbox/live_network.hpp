// SPDX-License-Identifier: MIT
// The interfaces, addresses and routes of the running system, rebuilt in a private network that leads
// nowhere.
#pragma once

#include <vector>

namespace hostadm::sandbox {

// What the kernel tells of the network, as it tells it.
class LiveNetwork {
public:
    // As the calling process sees it. Throws Error.
    static LiveNetwork seen();
    // Makes the calling process's own network, which has a loopback interface and nothing else, look like it:
    // an interface that drops what it is given stands for each. An address whose interface cannot be made
    // stands on the loopback interface; what has no place at all is left out. Throws Error.
    void rebuild() const;

private:
    using Messages = std::vector<char>;
    Messages links_, addresses_, routes_;
};

} // namespace hostadm::sandbox
