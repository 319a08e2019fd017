// SPDX-License-Identifier: MIT
#include "server/journal.hpp"

#include <charconv>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "base/translation.hpp"
#include "server/failure.hpp"
#include "server/transaction.hpp"

namespace hostadm::server {

namespace {

// A number and a blank, then that many bytes, or parts.
std::string counted(std::size_t count) {
    return std::to_string(count) + " ";
}

std::optional<std::size_t> take_count(std::string_view &text) {
    std::size_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end == text.data() + text.size() || *end != ' ')
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return count;
}

// The last entry of a process that was killed while it wrote is not whole, and counts all the same: what can be
// read of it is no entry of any kind, which is told.
Written take_entry(std::string_view &text) {
    Written entry;
    const std::size_t fields = take_count(text).value_or(0);
    while (entry.size() < fields) {
        const auto size = take_count(text);
        if (!size || *size > text.size())
            break;
        entry.emplace_back(text.substr(0, *size));
        text.remove_prefix(*size);
    }
    if (entry.size() != fields || fields == 0)
        text = {};
    return entry;
}

} // namespace

std::string as_field(const std::string &value) {
    return value;
}

std::string as_field(std::uint64_t value) {
    return std::to_string(value);
}

bool read_field(const std::string &text, std::string &value) {
    value = text;
    return true;
}

bool read_field(const std::string &text, std::uint64_t &value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

Journal::Journal() : file_(memfd_create("journal", MFD_CLOEXEC)) {
    if (!file_.is_open())
        fail_errno(base::tr("cannot keep a journal"));
}

void Journal::append(const Written &entry) {
    std::string text = counted(entry.size());
    for (const std::string &field : entry)
        text += counted(field.size()) + field;
    // The offset is shared with the process that reads.
    const bool kept = base::write_all(file_.get(), text) &&
                      (lasts_ != Lasts::beyond_the_machine || fdatasync(file_.get()) == 0);
    if (!kept)
        fail_errno(base::tr("cannot keep a journal"));
}

std::vector<Written> Journal::entries() const {
    return read_entries(file_);
}

std::vector<Written> read_entries(const base::Descriptor &file) {
    const std::optional<std::string> text = base::read_whole(file.get());
    if (!text)
        fail_errno(base::tr("cannot read the journal"));
    std::vector<Written> entries;
    for (std::string_view rest = *text; !rest.empty();)
        entries.push_back(take_entry(rest));
    return entries;
}

Uninterrupted::Uninterrupted() {
    sigprocmask(SIG_BLOCK, &interruptions(), &before_);
}

} // namespace hostadm::server
