// SPDX-License-Identifier: MIT
// Process-wide objects that outlive the process's own exit(): handlers of atexit() may still use them.
#pragma once

#include <new>
#include <utility>

namespace hostadm::base {

// Made like a Type and never destroyed.
template <typename Type> class Immortal {
public:
    template <typename... Arguments> explicit Immortal(Arguments &&...arguments) {
        ::new (static_cast<void *>(place_)) Type(std::forward<Arguments>(arguments)...);
    }
    Immortal(const Immortal &) = delete;
    Immortal &operator=(const Immortal &) = delete;

    Type &get() { return *std::launder(reinterpret_cast<Type *>(place_)); }

private:
    alignas(Type) unsigned char place_[sizeof(Type)];
};

} // namespace hostadm::base
