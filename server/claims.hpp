// SPDX-License-Identifier: MIT
// What one run has for itself from its first check until everything is done, or taken back: the name and the
// addresses of a client, the paths that it works on.
#pragma once

#include <string>
#include <vector>

#include "base/descriptor.hpp"

namespace hostadm::server {

struct Claim {
    enum class Kind { name, address, ethernet, path };
    Kind kind;
    std::string value; // a path in its one spelling (real_path_of)
};

// Claims of one process, which go with it however it ends. They lie in /run/hostadm, where only root can reach; the
// runs of an ordinary user, who can edit next to nothing of a server, claim nothing.
class Claims {
public:
    // All of them, or a Failure that says which one somebody else has, and who. `run` is the method, `subject`
    // the client.
    Claims(const std::string &run, const std::string &subject, const std::vector<Claim> &wanted,
           const std::string &folder = default_folder());
    // Further ones.
    void add(const std::vector<Claim> &wanted);
    Claims(const Claims &) = delete;
    Claims &operator=(const Claims &) = delete;
    ~Claims();

    static std::string default_folder();

private:
    void write(std::string text, const std::vector<Claim> &wanted);

    std::string folder_, path_;
    base::Descriptor file_; // locked as long as its process lives
};

} // namespace hostadm::server
