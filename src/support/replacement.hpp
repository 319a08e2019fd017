// SPDX-License-Identifier: MIT
// A table that a shell command writes anew.
#pragma once

#include <string>
#include <sys/stat.h>

namespace hostadm {

// A temporary file that a command fills and then moves over a table. While the object lives the table is the fresh
// file, which its owner may write; mode and owner of the old one come last.
class Replacement {
public:
    Replacement(std::string path, std::string table);
    ~Replacement();
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;

    // Makes the temporary file, empty.
    bool create() const;
    const char *path() const { return path_.c_str(); }
    const char *table() const { return table_.c_str(); }

private:
    std::string path_;
    std::string table_;
    struct stat old_ = {};
    bool known_;
};

} // namespace hostadm
