// SPDX-License-Identifier: MIT
// Lines of a table that take the place of others, in a way that can be taken back.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "server/journal.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

struct ReplacedLine {
    static constexpr std::string_view kind = "replaced line";
    std::string table, before, after; // with their line breaks
    static auto fields(auto &self) { return std::tie(self.table, self.before, self.after); }
};
// A line that has been changed since stays, and is told.
std::string take_back(const ReplacedLine &replaced, const UndoContext &context);

// What a line becomes; nothing: it stays.
using LineChange = std::function<std::optional<std::string>(std::string_view line)>;

// The text without the lines of which this is true.
std::string without_lines(std::string_view text, const std::function<bool(std::string_view line)> &is_meant);

// Changes lines (without their line breaks) of a table under its lock, all others keep every byte. False: there was
// nothing to change, perhaps no table. Throws Failure.
bool change_lines(const std::string &table, const LineChange &change, Journal &journal);

// Puts lines in the place of lines that follow each other, all with their line breaks. Throws Failure, also when they
// are not there any more.
void replace_lines(const std::string &table, const std::string &before, const std::string &after,
                   Journal &journal);

// A mark in front of a line that is there no longer, but kept for somebody who wants it back.
inline constexpr std::string_view disabled_mark = "# disabled by hostadm: ";
// The line behind the mark; nothing: it bears none.
std::optional<std::string_view> disabled_line(std::string_view line);

} // namespace hostadm::server
