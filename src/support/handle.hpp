// SPDX-License-Identifier: MIT
// Owners of what the system hands out by number or pointer.
#pragma once

#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <unistd.h>

namespace hostadm {

// An open descriptor; closed when the object goes.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (is_open())
            close(number_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool is_open() const { return number_ >= 0; }
    int get() const { return number_; }

private:
    int number_;
};

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};
// Memory from malloc, to be handed to a caller with release().
template <typename Type> using Allocated = std::unique_ptr<Type, Free>;

} // namespace hostadm
