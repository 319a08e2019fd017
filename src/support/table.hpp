// SPDX-License-Identifier: MIT
// Edits of system tables through the table interface.
#pragma once

#include <string>

#include "hostadm/tables.h"

namespace hostadm {

// The columns of one table edit. Each call returns the table interface's status.
class ColumnList {
public:
    ColumnList() = default;
    ~ColumnList() {
        if (list_ != nullptr)
            free_col_list(list_);
    }
    ColumnList(const ColumnList &) = delete;
    ColumnList &operator=(const ColumnList &) = delete;

    int create(const char *separators, const char *comment, const char *comment_text) {
        return new_col_list(&list_, separators, comment, comment_text);
    }
    int add(int position, const char *match, const char *value, int flag = 0) {
        return new_column(list_, position, position, position, match, value, flag);
    }
    // A column before which optional ones may be missing.
    int add_floating(int position, int a, int b, const char *match, const char *value) {
        return new_column(list_, position, a, b, match, value, 0);
    }
    col_list *get() { return list_; }

private:
    col_list *list_ = nullptr;
};

// What error 70 says about a table edit that ended with a non-zero status.
std::string table_failure_detail(int status, const char *key, const char *table);

// Statuses of the table interface that are told apart, and the two modes of a replacement, which mean the same.
inline constexpr int no_such_line = -2;
inline constexpr int table_locked = -26;
inline constexpr int replace_or_add = 3;
inline constexpr int replace_or_add_share = 11;

// What it answers when the edit failed. Deliberately not 70, the code that it records.
inline constexpr int table_not_updated = 38;

// Records error 70 for an edit that ended with a non-zero status; returns table_not_updated.
int report_table_failure(int status, const char *key, const char *table, const char *method);

} // namespace hostadm
