// SPDX-License-Identifier: MIT
#include "server/line_edits.hpp"

#include <algorithm>
#include <vector>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

namespace {

// Calls use(line, end of line) for each line of a text.
template <typename Use> void for_each_whole_line(std::string_view text, Use use) {
    while (!text.empty()) {
        const std::size_t size = std::min(text.find('\n'), text.size());
        const std::size_t ending = size == text.size() ? 0 : 1;
        use(text.substr(0, size), text.substr(size, ending));
        text.remove_prefix(size + ending);
    }
}

// The text with its lines changed, and what was changed.
std::string changed_text(const std::string &table, std::string_view text, const LineChange &change,
                         std::vector<ReplacedLine> &replaced) {
    std::string result;
    replaced.clear();
    for_each_whole_line(text, [&](std::string_view line, std::string_view ending) {
        const std::optional<std::string> other = change(line);
        if (other && *other != line)
            replaced.push_back({table, std::string(line).append(ending), *other + std::string(ending)});
        result.append(other ? std::string_view(*other) : line).append(ending);
    });
    return result;
}

// Where a text holds these lines, from the start of one to the end of one.
std::size_t find_lines(const std::string &text, const std::string &lines) {
    for (std::size_t at = text.find(lines); at != text.npos; at = text.find(lines, at + 1))
        if ((at == 0 || text[at - 1] == '\n') && (lines.ends_with('\n') || at + lines.size() == text.size()))
            return at;
    return text.npos;
}

} // namespace

std::string without_lines(std::string_view text, const std::function<bool(std::string_view line)> &is_meant) {
    std::string rest;
    for_each_whole_line(text, [&](std::string_view line, std::string_view ending) {
        if (!is_meant(line))
            rest.append(line).append(ending);
    });
    return rest;
}

bool change_lines(const std::string &table, const LineChange &change, Journal &journal) {
    std::string text;
    std::vector<ReplacedLine> replaced;
    int status = tables::read_file(table, text);
    if (status == tables::no_such_line)
        return false;
    if (status != 0)
        fail_reading(table, status);
    changed_text(table, text, change, replaced);
    if (replaced.empty())
        return false;
    for (const ReplacedLine &line : replaced)
        journal.note(line);
    status = tables::edit_file(table, [&](std::string &whole) {
        whole = changed_text(table, whole, change, replaced);
        return 0;
    });
    if (status != 0)
        fail_edit(table, status);
    return true;
}

std::string take_back(const ReplacedLine &replaced, const UndoContext &) {
    bool found = true;
    const int status = tables::edit_file(replaced.table, [&](std::string &text) {
        const std::size_t at = find_lines(text, replaced.after);
        found = at != text.npos || find_lines(text, replaced.before) != text.npos;
        if (at != text.npos)
            text.replace(at, replaced.after.size(), replaced.before);
        return 0;
    });
    if (status != 0)
        return edit_failure(replaced.table, status);
    return found ? "" : base::tr("a line of {1} that somebody else has changed since", replaced.table);
}

void replace_lines(const std::string &table, const std::string &before, const std::string &after,
                   Journal &journal) {
    journal.note(ReplacedLine{table, before, after});
    bool found = false;
    const int status = tables::edit_file(table, [&](std::string &text) {
        const std::size_t at = find_lines(text, before);
        found = at != text.npos;
        if (found)
            text.replace(at, before.size(), after);
        return 0;
    });
    if (status != 0)
        fail_edit(table, status);
    if (!found)
        fail(Code::table, base::tr("somebody else has changed {1} at the same time; try again", table));
}

std::optional<std::string_view> disabled_line(std::string_view line) {
    if (!line.starts_with(disabled_mark))
        return std::nullopt;
    return line.substr(disabled_mark.size());
}

} // namespace hostadm::server
