// SPDX-License-Identifier: MIT
// Field-wise lookup, replacement and removal of lines in text tables.
#include "hostadm/tables.h"

#include <cerrno>
#include <cstring>

#include "base/boundary.hpp"
#include "hostadm/table_edit.hpp"
#include "tables/columns.hpp"
#include "tables/failure.hpp"

using namespace hostadm::tables;

struct col_list {
    Columns columns;
};

namespace {

// The modes in which callers replace an entry. Both replace the matching line or add the new one.
constexpr int replace_or_add = 3;
constexpr int replace_or_add_share = 11;

// The stop for exceptions at the edge of the library.
template <typename Work> int at_boundary(Work work) noexcept {
    const auto or_status = [&] {
        try {
            return work();
        } catch (const Failure &failure) {
            return failure.status;
        }
    };
    return hostadm::base::translated_at_boundary(or_status, [](int error) { return -error; });
}

std::optional<std::string> optional_text(const char *text) {
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

int copy_out(std::string_view line, char *buffer, int size) {
    if (line.find('\0') != std::string_view::npos)
        return -EILSEQ;
    if (line.size() >= static_cast<std::size_t>(size))
        return -ERANGE;
    std::memcpy(buffer, line.data(), line.size());
    buffer[line.size()] = '\0';
    return 0;
}

Splice appended(std::string_view text, const std::string &line) {
    const std::string ending(ending_of(text));
    const bool last_line_open = !text.empty() && text.back() != '\n';
    return {text.size(), 0, (last_line_open ? ending : "") + line + ending};
}

} // namespace

int new_col_list(col_list **list, const char *separators, const char *comment,
                 [[maybe_unused]] const char *comment_text) {
    return at_boundary([&] {
        if (list == nullptr || separators == nullptr || *separators == '\0' ||
            std::strpbrk(separators, "\r\n") != nullptr)
            return -EINVAL;
        *list = new col_list{Columns(separators, comment == nullptr ? "#" : comment)};
        return 0;
    });
}

int new_column(col_list *list, int position, int a, int b, const char *match, const char *value, int flag) {
    return at_boundary([&] {
        if (list == nullptr || position < 0)
            return -EINVAL;
        const bool floating = position != a || position != b;
        const bool added =
            list->columns.add({position, floating, flag != 0, optional_text(match), optional_text(value)});
        return added ? 0 : -EINVAL;
    });
}

void free_col_list(col_list *list) {
    delete list;
}

int get_db_entry(const char *table, col_list *list, char *buffer, int size) {
    return at_boundary([&] {
        if (table == nullptr || list == nullptr || buffer == nullptr || size <= 0)
            return -EINVAL;
        std::string text;
        if (const int status = read_file(table, text); status != 0)
            return status;
        const std::optional<Line> line = list->columns.find(text);
        if (!line)
            return no_such_line;
        return copy_out(std::string_view(text).substr(line->begin, line->length), buffer, size);
    });
}

int replace_db_entry(const char *table, col_list *list, int mode) {
    return at_boundary([&] {
        if (table == nullptr || list == nullptr || (mode != replace_or_add && mode != replace_or_add_share))
            return -EINVAL;
        const std::string line = list->columns.new_line();
        const auto change = [&](std::string_view text, std::optional<Splice> &splice) {
            const std::optional<Line> old = list->columns.find(text);
            if (!old) {
                splice = appended(text, line);
                return 0;
            }
            const std::string_view old_line = text.substr(old->begin, old->length);
            if (const auto new_line = list->columns.replacement(old_line, line)) {
                const std::string_view ending =
                    text.substr(old->begin + old->length, old->whole_length - old->length);
                splice = Splice{old->begin, old->whole_length,
                                *new_line + std::string(ending.ends_with('\n') ? ending : ending_of(text))};
            }
            return 0;
        };
        return splice_file(table, change, {.create = true});
    });
}

int remove_db_entry(const char *table, col_list *list) {
    return at_boundary([&] {
        if (table == nullptr || list == nullptr)
            return -EINVAL;
        const auto change = [&](std::string_view text, std::optional<Splice> &splice) {
            const std::optional<Line> old = list->columns.find(text);
            if (!old)
                return no_such_line;
            splice = Splice{old->begin, old->whole_length, ""};
            return 0;
        };
        return splice_file(table, change);
    });
}
