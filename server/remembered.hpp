// SPDX-License-Identifier: MIT
// What stands in a client's root before a run, so that a run that fails can put it back. The client may have put
// anything in its place meanwhile, so all of it goes through the root's descriptor.
#pragma once

#include <optional>
#include <string>
#include <sys/stat.h>

#include "base/beneath.hpp"

namespace hostadm::server {

class Remembered {
public:
    // A file is read whole. Throws base::BeneathError when it cannot be read. The root must outlive this.
    Remembered(const base::Beneath &root, std::string below);

    const std::string &path() const { return below_; } // below the root
    // Puts back what is no longer so: a file with its mode and owner, a link, nothing at all. A folder that was
    // made meanwhile stays if somebody keeps something in it. Returns what had to stay, in words, or nothing.
    std::string put_back() const;

private:
    void put_back_nothing() const;
    void put_back_link() const;
    void put_back_file() const;

    const base::Beneath &root_;
    std::string below_;
    std::optional<struct stat> before_;
    std::string text_; // of the file, or where the link leads
};

} // namespace hostadm::server
