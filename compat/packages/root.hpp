// SPDX-License-Identifier: MIT
// The root directory that packages are installed into. Every path is looked up inside it, as a process with
// this root directory would: an absolute link leads to a place inside, and ".." does not lead out.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "compat/support/file.hpp"

namespace compat {

class Root {
public:
    explicit Root(const std::string &path);

    // One installation at a time; waits at most five minutes,
    // and may be given up by an exception of `waiting`.
    void lock(const std::function<void()> &waiting) const;
    int get() const { return opened_.get(); }
    // Null with errno set when it cannot be opened.
    Descriptor open(const std::string &path, int flags) const;
    Descriptor directory(const std::string &path) const;
    // The directory of a path; throws when it is not there.
    Descriptor parent_of(const std::string &path) const;
    // What is there, a link itself and not its target.
    std::optional<struct stat> status(const std::string &path) const;
    std::optional<std::string> read(const std::string &path) const;

private:
    std::string path_;
    Descriptor opened_;
};

std::string directory_part(const std::string &path); // "/usr" of "/usr/bin", "/" of "/usr"
std::string last_part(const std::string &path);

// Users and groups by the tables of the root; numbers mean themselves, and the usual System V names are known
// before the root has its tables.
class Accounts {
public:
    explicit Accounts(const Root &root);
    uid_t user(const std::string &name) const;
    gid_t group(const std::string &name) const;

private:
    std::string passwd_;
    std::string group_;
};

} // namespace compat
