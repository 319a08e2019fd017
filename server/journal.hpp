// SPDX-License-Identifier: MIT
// What a run has done, or is about to do, told so that a run that broke off can be taken back. It outlives the
// process that writes it.
//
// An entry is a small struct beside the subject that it belongs to: the name of its kind, its fields, and a
// function take_back(entry, context) that returns what had to stay, in words, or nothing.
#pragma once

#include <csignal>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/descriptor.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// An entry as it is kept: its kind, then its fields.
using Written = std::vector<std::string>;

std::string as_field(const std::string &value);
std::string as_field(std::uint64_t value);
bool read_field(const std::string &text, std::string &value);
bool read_field(const std::string &text, std::uint64_t &value);

template <typename Entry> Written written(const Entry &entry) {
    return std::apply(
        [](const auto &...field) {
            return Written{std::string(Entry::kind), as_field(field)...};
        },
        Entry::fields(entry));
}

// Nothing: the words are no entry of this kind.
template <typename Entry> std::optional<Entry> read_entry(const Written &words) {
    Entry entry;
    const auto fields = Entry::fields(entry);
    if (words.size() != std::tuple_size_v<decltype(fields)> + 1 || words.front() != Entry::kind)
        return std::nullopt;
    auto word = words.begin();
    const bool good = std::apply([&](auto &...field) { return (read_field(*++word, field) && ...); }, fields);
    return good ? std::optional(entry) : std::nullopt;
}

class Journal {
public:
    enum class Lasts { as_long_as_a_process, beyond_the_machine };
    // Of one's own, or in a file that is read from its start. Throws Failure.
    Journal();
    Journal(base::Descriptor file, Lasts lasts) : file_(std::move(file)), lasts_(lasts) {}
    template <typename Entry> void note(const Entry &entry) { append(written(entry)); }
    // Of something that is there already. What cannot be noted could not be taken back later, so it is at once.
    template <typename Entry> void note_made(const Entry &entry) {
        try {
            note(entry);
        } catch (...) {
            take_back(entry, UndoContext{});
            throw;
        }
    }
    // Throws Failure. A field may hold any byte.
    void append(const Written &entry);
    std::vector<Written> entries() const;

private:
    base::Descriptor file_;
    Lasts lasts_ = Lasts::as_long_as_a_process;
};

// All entries of a file. Throws Failure.
std::vector<Written> read_entries(const base::Descriptor &file);

// While it lives no interruption comes between something that is made and its entry in the journal.
class Uninterrupted {
public:
    Uninterrupted();
    ~Uninterrupted() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    Uninterrupted(const Uninterrupted &) = delete;
    Uninterrupted &operator=(const Uninterrupted &) = delete;

private:
    sigset_t before_;
};

} // namespace hostadm::server
