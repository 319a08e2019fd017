// SPDX-License-Identifier: MIT
// The tables that tell who a client is, of lines KEY NAME...: /etc/hosts (ADDRESS NAME...) and /etc/ethers
// (ETHERNET NAME). A further one is a further HostTable.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "server/journal.hpp"
#include "server/undo_context.hpp"

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
    // Failure when the table cannot be edited.
    Added add(const std::string &key, const std::string &name) const;
    // The same as a step of a run: noted in the journal, and a conflict is a failure. False: it was there.
    bool ensure(const std::string &key, const std::string &name, Journal &journal) const;
    // What add would find, without a change.
    Added examine(const std::string &key, const std::string &name) const;

    // Removes the lines whose first name this is (and whose key,
    // unless it is empty). True when there were any.
    bool remove(const std::string &name, const std::string &key = {}) const;

    // What the lines of a table of this kind say; of addresses those of IPv6, too.
    struct Entry {
        std::string key;
        std::vector<std::string> names;
    };
    std::vector<Entry> entries_in(std::string_view text) const;
    // The entries with this key, however it is spelled, and this first name; one that is empty counts as any. Only
    // such as could be set here: no IPv6.
    std::vector<Entry> entries_of(std::string_view text, const std::string &key,
                                  const std::string &name) const;
    // The text without them; all other lines keep every byte.
    std::string without_entries(std::string_view text, const std::string &key, const std::string &name) const;

    // The key under which a name stands, looking at all names or at the first of each line only; empty: none.
    std::string key_of(std::string_view name, bool first_only = false) const;
    // The first name of the line that has this key, however it is spelled; empty: none.
    std::string name_of(std::string_view key) const;
    // Whether two keys mean the same, however they are spelled.
    bool is_same_key(std::string_view one, std::string_view other) const;
    // First keys by name in lower case, for many look-ups. A table that does not exist is empty.
    std::unordered_map<std::string, std::string> keys_by_name() const;

private:
    std::optional<std::string> same_spelling(std::string_view key) const; // nothing: no key of this table
    bool is_meant(std::string_view line, const std::string &key, const std::string &name) const;
    Added examine_text(std::string_view text, const std::string &key, const std::string &name) const;
    std::string read() const;

    Kind kind_;
    std::string path_;
};

// Removes entries of a table that may lie in a client's root, and looks that they are gone. Throws Failure, also when the
// name localhost would go with a line, or when the name is only a further one of some line.
struct RemovedEntries {
    bool changed = false;
    std::string names; // that were removed
};
RemovedEntries remove_entries(const HostTable &table, const std::string &key, const std::string &name);

// A line as it was added, to whichever table.
struct AddedLine {
    static constexpr std::string_view kind = "added line";
    std::string table, line;
    static auto fields(auto &self) { return std::tie(self.table, self.line); }
};
// A line that has been changed since stays.
std::string take_back(const AddedLine &added, const UndoContext &context);

HostTable hosts_table();
HostTable ethers_table();

} // namespace hostadm::server
