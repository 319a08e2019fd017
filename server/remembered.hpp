// SPDX-License-Identifier: MIT
// What stands at a path before a run, so that a run that fails can put it back.
#pragma once

#include <string>
#include <sys/stat.h>

namespace hostadm::server {

class Remembered {
public:
    // A file is read whole. Throws std::runtime_error when it cannot be read.
    explicit Remembered(std::string path);

    const std::string &path() const { return path_; }
    // Puts back what is no longer so: a file with its mode and owner, a link,
    // nothing at all. A folder that was made meanwhile stays if somebody
    // keeps something in it. Returns what had to stay, in words, or nothing.
    std::string put_back() const;

private:
    std::string put_back_nothing() const;
    std::string put_back_link() const;
    std::string put_back_file() const;

    std::string path_;
    struct stat before_ {}; // st_mode 0: there was nothing
    std::string text_;      // of the file, or where the link leads
};

} // namespace hostadm::server
