// SPDX-License-Identifier: MIT
// The two tables that tell who a client is: /etc/hosts (ADDRESS NAME...) and /etc/ethers (ETHERNET NAME).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace hostadm::server {

// One table of lines KEY NAME... Keys are compared by value,
// whatever their spelling, names without regard to case.
class HostTable {
public:
    enum class Kind { addresses, ethernets };

    HostTable(Kind kind, std::string path) : kind_(kind), path_(std::move(path)) {}

    const std::string &path() const { return path_; }

    enum class Outcome { added, present, conflict };
    struct Added {
        Outcome outcome;
        std::string conflict = {}; // what stands in the way, in words
    };
    // Adds the line "KEY<tab>NAME" unless a line has both; key and name may stand in no other lines. The look
    // and the change are one edit under the table's lock, so that two who add at once cannot both win. Throws
    // std::runtime_error when the table cannot be edited.
    Added add(const std::string &key, const std::string &name) const;
    // What add would find, without a change.
    Added examine(const std::string &key, const std::string &name) const;

    // Removes the lines whose first name this is (and whose key,
    // unless it is empty). True when there were any.
    bool remove(const std::string &name, const std::string &key = {}) const;

    // The key under which a name stands, looking at all names or at the first of each line only; empty: none.
    std::string key_of(std::string_view name, bool first_only = false) const;
    // First keys by name in lower case, for many look-ups. A table that does not exist is empty.
    std::unordered_map<std::string, std::string> keys_by_name() const;

private:
    std::optional<std::string> same_spelling(std::string_view key) const; // nothing: no key of this table
    Added examine_text(std::string_view text, const std::string &key, const std::string &name) const;
    std::string read() const;

    Kind kind_;
    std::string path_;
};

HostTable hosts_table();
HostTable ethers_table();

} // namespace hostadm::server
