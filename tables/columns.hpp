// SPDX-License-Identifier: MIT
// How the lines of a table are read, found and written: the columns of a col_list on one side, text on the
// other.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::tables {

struct Column {
    int position;
    bool floating; // optional columns may be missing before it: counted from the end of the line
    bool rest;     // its value is the rest of the line, of one or more words
    std::optional<std::string> match;
    std::optional<std::string> value;
};

// A line without its ending, and how many bytes it takes with it.
struct Line {
    std::size_t begin;
    std::size_t length;
    std::size_t whole_length;
};

// A line's words, and the comment behind them together with the separators before it.
struct Words {
    std::vector<std::string_view> words;
    std::string_view comment;
};

class Columns {
public:
    Columns(std::string separators, std::string comment_mark);

    // False when the position is declared already.
    bool add(Column column);

    // The first line whose fields equal the match values; throws -EINVAL when no column has one.
    std::optional<Line> find(std::string_view text) const;

    // The line that the columns' values make; throws -EINVAL when it would not read back as those values.
    std::string new_line() const;

    // What `old_line` becomes when `line` takes its place: a comment behind the old one is kept. Nothing when
    // the fields are equal already.
    std::optional<std::string> replacement(std::string_view old_line, const std::string &line) const;

private:
    void split(std::string_view line, Words &result) const;
    bool begins_comment(std::string_view word) const;
    std::size_t first_comment_field() const;
    bool is_match(const Words &line) const;
    std::optional<std::size_t> field_of(std::size_t column, std::size_t word_count) const;
    bool reads_back(std::string_view line) const;

    std::string separators_;
    std::string comment_mark_;
    std::vector<Column> columns_; // by position
};

// The line ending that the table uses: that of its last ended line.
std::string_view ending_of(std::string_view text);

} // namespace hostadm::tables
