// SPDX-License-Identifier: MIT
// The root directory that packages are installed into. Every path is looked up inside it, as a process with
// this root directory would: an absolute link leads to a place inside, and ".." does not lead out. It may belong to
// a client that changes it meanwhile.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "base/beneath.hpp"
#include "base/descriptor.hpp"

namespace compat {

class Root {
public:
    explicit Root(const std::string &path);

    // One installation at a time, until what is returned is closed. Waits at most five minutes, and may be given up
    // by an exception of `waiting`.
    [[nodiscard]] hostadm::base::Descriptor lock(const std::function<void()> &waiting) const;

    bool has_directory(const std::string &path) const;
    // Throws when it is not there.
    hostadm::base::Beneath directory(const std::string &path) const;
    hostadm::base::Beneath parent_of(const std::string &path) const;
    // What is there, a link itself and not its target.
    std::optional<struct stat> status(const std::string &path) const { return files_.status(path); }
    hostadm::base::Descriptor open_file(const std::string &path) const { return files_.open_file(path); }
    // Nothing when there is no such file; throws when it is no plain one.
    std::optional<std::string> read(const std::string &path) const;
    // None when there is no such directory.
    std::vector<std::string> names(const std::string &path) const;
    // False: it is there already.
    bool make_directory(const std::string &path) const { return files_.make_directory(path); }

private:
    hostadm::base::Beneath files_;
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
