// SPDX-License-Identifier: MIT
// Files in a shared temporary directory, some of them under names that anybody can foresee.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

namespace hostadm {

// Makes an empty file of our own under that name, ready for fopen, ">" or ">>" to write
// to. Whatever bore the name before (a leftover, somebody's link) is unlinked and never
// followed; a folder of that name is an error. From then on the sticky bit of the
// folder keeps others from putting something else in its place. False: errno says why.
bool create_exclusively(const std::string &path, mode_t mode = 0600);

// The same under a name that nobody bears:
// the template's last six characters, all X, are replaced. Mode 0600.
std::optional<std::string> create_unique(std::string name_template);

// Removes a file when the object goes.
class RemovedAtEnd {
public:
    explicit RemovedAtEnd(std::string path) : path_(std::move(path)) {}
    ~RemovedAtEnd();
    RemovedAtEnd(const RemovedAtEnd &) = delete;
    RemovedAtEnd &operator=(const RemovedAtEnd &) = delete;

    const std::string &path() const { return path_; }

private:
    std::string path_;
};

} // namespace hostadm
