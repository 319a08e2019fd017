// SPDX-License-Identifier: MIT
#include "tables/columns.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tables/failure.hpp"

namespace hostadm::tables {

namespace {

// Where `needle` begins in `text` from `from` on.
std::size_t find_bytes(std::string_view text, std::string_view needle, std::size_t from) {
    const void *hit = memmem(text.data() + from, text.size() - from, needle.data(), needle.size());
    return hit == nullptr ? std::string_view::npos
                          : static_cast<std::size_t>(static_cast<const char *>(hit) - text.data());
}

// The line that holds the byte at `inside`.
Line line_around(std::string_view text, std::size_t inside) {
    const void *before = memrchr(text.data(), '\n', inside);
    const void *after = std::memchr(text.data() + inside, '\n', text.size() - inside);
    Line line;
    line.begin =
        before == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char *>(before) - text.data()) + 1;
    std::size_t end = after == nullptr
                          ? text.size()
                          : static_cast<std::size_t>(static_cast<const char *>(after) - text.data());
    line.whole_length = (after == nullptr ? end : end + 1) - line.begin;
    if (end > line.begin && text[end - 1] == '\r')
        --end;
    line.length = end - line.begin;
    return line;
}

// A mark within quotes, as in the description of a share, begins no comment.
bool ends_within_quotes(std::string_view text) {
    char quote = '\0';
    for (const char character : text) {
        if (quote == character)
            quote = '\0';
        else if (quote == '\0' && (character == '"' || character == '\''))
            quote = character;
    }
    return quote != '\0';
}

} // namespace

Columns::Columns(std::string separators, std::string comment_mark)
    : separators_(std::move(separators)), comment_mark_(std::move(comment_mark)) {}

bool Columns::add(Column column) {
    const auto place = std::lower_bound(
        columns_.begin(), columns_.end(), column,
        [](const Column &one, const Column &other) { return one.position < other.position; });
    if (place != columns_.end() && place->position == column.position)
        return false;
    columns_.insert(place, std::move(column));
    return true;
}

// Every matching line holds every match value, so only lines that hold the longest one need a closer look.
std::optional<Line> Columns::find(std::string_view text) const {
    const std::string *needle = nullptr;
    for (const Column &column : columns_) {
        if (!column.match)
            continue;
        if (column.match->empty()) // no field is empty
            return std::nullopt;
        if (needle == nullptr || column.match->size() > needle->size())
            needle = &*column.match;
    }
    if (needle == nullptr)
        throw Failure{-EINVAL};

    Words words;
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t hit = find_bytes(text, *needle, from);
        if (hit == std::string_view::npos)
            break;
        const Line line = line_around(text, hit);
        split(text.substr(line.begin, line.length), words);
        if (is_match(words))
            return line;
        from = line.begin + line.whole_length;
    }
    return std::nullopt;
}

std::string Columns::new_line() const {
    std::string line;
    for (std::size_t index = 0; index < columns_.size(); ++index) {
        const Column &column = columns_[index];
        const auto &value = column.value ? column.value : column.match;
        if (!value || column.position != static_cast<int>(index))
            throw Failure{-EINVAL};
        if (index > 0)
            line += separators_.front();
        line += *value;
    }
    if (!reads_back(line))
        throw Failure{-EINVAL};
    return line;
}

std::optional<std::string> Columns::replacement(std::string_view old_line, const std::string &line) const {
    Words before, after;
    split(old_line, before);
    split(line, after);
    if (before.words == after.words && (after.comment.empty() || after.comment == before.comment))
        return std::nullopt;
    if (!after.comment.empty() || before.comment.empty())
        return line;
    const std::string with_comment = line + std::string(before.comment);
    Words kept;
    split(with_comment, kept);
    if (kept.words != after.words) // a quote left open in a value would swallow the comment
        throw Failure{-EINVAL};
    return with_comment;
}

void Columns::split(std::string_view line, Words &result) const {
    result.words.clear();
    result.comment = {};
    const std::size_t first_comment = first_comment_field();
    std::size_t end = 0;
    for (;;) {
        const std::size_t begin = line.find_first_not_of(separators_, end);
        if (begin == std::string_view::npos)
            return;
        if (result.words.size() >= first_comment && begins_comment(line.substr(begin)) &&
            !ends_within_quotes(line.substr(0, begin))) {
            result.comment = line.substr(end);
            return;
        }
        end = std::min(line.find_first_of(separators_, begin), line.size());
        result.words.push_back(line.substr(begin, end - begin));
    }
}

bool Columns::begins_comment(std::string_view word) const {
    return !comment_mark_.empty() && word.starts_with(comment_mark_);
}

// Up to the last declared column a word that begins with the mark is a field like any other. Where columns may be
// missing, the last one is looked for from where it can stand at the earliest.
std::size_t Columns::first_comment_field() const {
    const auto can_be_missing = [](const Column &column) { return column.floating && !column.match; };
    const bool has_floating =
        std::any_of(columns_.begin(), columns_.end(), [](const Column &column) { return column.floating; });
    if (columns_.empty())
        return 1;
    return has_floating
               ? columns_.size() -
                     static_cast<std::size_t>(std::count_if(columns_.begin(), columns_.end(), can_be_missing))
               : static_cast<std::size_t>(columns_.back().position) + 1;
}

bool Columns::is_match(const Words &line) const {
    if (line.words.empty())
        return false;
    const Column &first = columns_.front();
    const bool wants_comment = first.position == 0 && first.match && begins_comment(*first.match);
    if (begins_comment(line.words.front()) && !wants_comment)
        return false;
    for (std::size_t index = 0; index < columns_.size(); ++index) {
        const Column &column = columns_[index];
        if (!column.match)
            continue;
        const auto field = field_of(index, line.words.size());
        if (!field || line.words[*field] != *column.match)
            return false;
    }
    return true;
}

std::optional<std::size_t> Columns::field_of(std::size_t column, std::size_t word_count) const {
    if (!columns_[column].floating) {
        const auto position = static_cast<std::size_t>(columns_[column].position);
        return position < word_count ? std::optional(position) : std::nullopt;
    }
    const std::size_t behind = columns_.size() - column; // this one included
    const auto fixed_before = static_cast<std::size_t>(
        std::count_if(columns_.begin(), columns_.begin() + static_cast<std::ptrdiff_t>(column),
                      [](const Column &other) { return !other.floating; }));
    if (word_count < fixed_before + behind)
        return std::nullopt;
    return word_count - behind;
}

// What was written must be found and read again as it was meant: this catches empty values, values that hold
// a separator, a line break or a comment mark, and whatever else would shift the fields.
bool Columns::reads_back(std::string_view line) const {
    if (columns_.empty() || line.find_first_of("\r\n") != std::string_view::npos)
        return false;
    const Column &first = columns_.front();
    if (begins_comment(line) && !(first.match && begins_comment(*first.match)))
        return false;

    const bool has_floating =
        std::any_of(columns_.begin(), columns_.end(), [](const Column &column) { return column.floating; });
    const bool has_rest = columns_.back().rest;
    Words read;
    split(line, read);
    if (has_floating || has_rest ? read.words.size() < columns_.size() : read.words.size() != columns_.size())
        return false;
    if (!read.comment.empty() && !has_rest)
        return false;
    for (std::size_t index = 0; index < columns_.size(); ++index) {
        const Column &column = columns_[index];
        if (column.rest && index + 1 != columns_.size())
            return false;
        const std::string &value = column.value ? *column.value : *column.match;
        if (column.rest || (column.floating && !column.match)) {
            const std::size_t begin = value.find_first_not_of(separators_);
            if (begin == std::string::npos || begins_comment(std::string_view(value).substr(begin)))
                return false;
        } else if (const auto field = field_of(index, read.words.size());
                   !field || read.words[*field] != value) {
            return false;
        }
    }
    return true;
}

std::string_view ending_of(std::string_view text) {
    const std::size_t last = text.rfind('\n');
    return last != std::string_view::npos && last > 0 && text[last - 1] == '\r' ? "\r\n" : "\n";
}

} // namespace hostadm::tables
